[install]
CopyFile $(current_dir)/pages/* *.bak,*-old [ROOT]/target/site*
