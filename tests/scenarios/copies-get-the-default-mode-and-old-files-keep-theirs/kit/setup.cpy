[install]
CopyFile $(current_dir)/tools/* - [ROOT]/target/bin
