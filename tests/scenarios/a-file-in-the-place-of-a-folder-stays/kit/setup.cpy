[install]
CopyDir $(current_dir)/img - [ROOT]/target
