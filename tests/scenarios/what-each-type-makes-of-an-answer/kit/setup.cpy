[install]
Ini $(current_dir)/answers.tmpl [ROOT]/target/answers
