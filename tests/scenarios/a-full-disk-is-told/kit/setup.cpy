[tidy]
CopyFile $(current_dir)/page.html - [ROOT]/target/site
Ini $(current_dir)/page.html [ROOT]/target/site/site.cfg
WFile [ROOT]/target/site/name product
