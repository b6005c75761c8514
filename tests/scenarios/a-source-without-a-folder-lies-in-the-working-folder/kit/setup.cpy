[install]
CopyFile index.html - [ROOT]/target/site
CopyFile [ROOT]/kit/pages/ - [ROOT]/target/site
