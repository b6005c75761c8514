[install]
Ini $(current_dir)/page.tmpl [ROOT]/target/page