[upgrade]
CopyDir $(current_dir)/site data,*.cfg [ROOT]/target
MkDir [ROOT]/target/site/data
