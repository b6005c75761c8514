[install]
MkDir [ROOT]/target/site
CopyFile $(current_dir)/page.html - [ROOT]/target/site
CopyDir $(current_dir)/img - [ROOT]/target/site
Ini $(current_dir)/site.tmpl [ROOT]/target/site/site.cfg
Rename [ROOT]/target/site/page.html [ROOT]/target/site/index.html
Exist [ROOT]/target/site/index.html installed
RmFile [ROOT]/target/*.list -
RmDir [ROOT]/target/old -
Chmod [ROOT]/target/site/*.html - 640
Error installed Never shown.
WFile [ROOT]/target/site/name product
RFile [ROOT]/target/site/guests guests
