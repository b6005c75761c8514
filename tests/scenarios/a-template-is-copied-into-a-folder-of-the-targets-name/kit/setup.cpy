[install]
Ini $(current_dir)/site.tmpl [ROOT]/target/conf
