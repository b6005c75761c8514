[install]
MkDir [ROOT]/target/site
CopyFile $(current_dir)/page.html - [ROOT]/target/site
