[install]
CopyFile $(current_dir)/page.html - [ROOT]/target/site
