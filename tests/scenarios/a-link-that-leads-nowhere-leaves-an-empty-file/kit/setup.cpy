[install]
CopyFile $(current_dir)/current.html - [ROOT]/target/site
