[install]
RmFile [ROOT]/target/*.list -
CopyFile $(current_dir)/page.html - [ROOT]/target/site
