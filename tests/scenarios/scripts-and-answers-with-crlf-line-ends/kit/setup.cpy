[install]
Ini $(current_dir)/page.tmpl [ROOT]/target/page
WFile [ROOT]/target/public public
