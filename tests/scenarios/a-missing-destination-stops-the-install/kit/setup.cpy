[install]
WFile [ROOT]/target/started yes
CopyFile $(current_dir)/pages/* - [ROOT]/target/htdocs
WFile [ROOT]/target/never yes
