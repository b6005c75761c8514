[install]
CopyDir $(current_dir)/pages/* - [ROOT]/target/site
