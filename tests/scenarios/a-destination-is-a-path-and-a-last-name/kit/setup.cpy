[tidy]
CopyFile $(current_dir)/page.html - [ROOT]/target/docs/
CopyFile $(current_dir)/page.html - docs
CopyFile $(current_dir)/page.html - [ROOT]/target/lost/docs
CopyFile $(current_dir)/page.html - [ROOT]/target/docs
