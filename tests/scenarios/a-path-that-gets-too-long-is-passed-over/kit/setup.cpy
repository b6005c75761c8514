[tidy]
CopyFile $(current_dir)/minutes-* - [ROOT]/target/archive*
CopyFile $(current_dir)/a.html - [ROOT]/target/archive*
