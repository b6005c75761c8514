[install]
CopyFile $(current_dir)/feed - [ROOT]/target/site
