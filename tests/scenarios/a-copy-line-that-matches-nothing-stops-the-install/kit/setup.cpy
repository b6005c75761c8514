[install]
CopyFile $(current_dir)/pages/*.cgi - [ROOT]/target/*
WFile [ROOT]/target/never product
