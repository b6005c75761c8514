[install]
CopyFile $(current_dir)/pages/page*.html *draft*,page9.html [ROOT]/target/site
