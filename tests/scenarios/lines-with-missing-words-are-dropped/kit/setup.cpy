[install]
CopyFile
MkDir
RmDir [ROOT]/target/own
CopyFile $(current_dir)/page.html
Ini $(current_dir)/page.html
Chmod [ROOT]/target/own -
mkdir [ROOT]/target/site
WFILE [ROOT]/target/title product
