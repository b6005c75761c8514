[tidy]
CopyFile $(current_dir)/a.html - [ROOT]/target/site
CopyFile $(current_dir)/b.html - [ROOT]/target/site
CopyFile $(current_dir)/c.html - [ROOT]/target/site
