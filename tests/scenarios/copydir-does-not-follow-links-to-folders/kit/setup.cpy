[install]
CopyDir $(current_dir)/site - [ROOT]/target
