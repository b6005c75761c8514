[install]
CopyFile $(current_dir)/pages/* $(backups) [ROOT]/target/site $(wanted)
