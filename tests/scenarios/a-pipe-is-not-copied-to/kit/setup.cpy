[tidy]
CopyFile $(current_dir)/feed - [ROOT]/target/site
CopyFile $(current_dir)/page - [ROOT]/target/site
