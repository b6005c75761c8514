[install]
CopyDir $(current_dir)/cache - [ROOT]/target
CopyDir $(current_dir)/cache - [ROOT]/target
WFile [ROOT]/target/never yes
