[install]
WFile [ROOT]/target/folder current_dir
