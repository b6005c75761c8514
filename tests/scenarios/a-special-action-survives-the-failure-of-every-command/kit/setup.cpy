[tidy]
CopyFile $(current_dir)/nothing* - [ROOT]/target/site
CopyDir $(current_dir)/page.html - [ROOT]/target/lost
MkDir [ROOT]/target/own.html/img
Ini $(current_dir)/page.html [ROOT]/target/lost/page.html
Rename [ROOT]/target/lost.html [ROOT]/target/found.html
RmFile [ROOT]/target/*.list -
RmDir [ROOT]/target/*.list -
Chown [ROOT]/target/own.html - no-such-user
Chmod [ROOT]/target/*.cgi - 755
Error ready Not ready yet.
WFile [ROOT]/target/lost/title product
RFile [ROOT]/target/lost/title title
Grow [ROOT]/target/own.html - [ROOT]/target/site
