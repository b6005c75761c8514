[install]
Ini $(current_dir)/services.tmpl [ROOT]/target/services
