[install]
CopyFile $(current_dir)/pages/* - [ROOT]/target/site
WFile [ROOT]/target/after yes
