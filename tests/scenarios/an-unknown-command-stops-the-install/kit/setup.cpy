[install]
MkDir [ROOT]/target/site
WFile [ROOT]/target/site/title product
CopyFiles $(current_dir)/page.html - [ROOT]/target/site
WFile [ROOT]/target/never product
