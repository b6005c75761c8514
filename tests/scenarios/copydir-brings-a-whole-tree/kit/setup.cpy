[install]
CopyDir $(current_dir)/pages/* CVS,*.bak [ROOT]/target/site
