[install]
Ini $(current_dir)/long.tmpl [ROOT]/target/long.cfg
