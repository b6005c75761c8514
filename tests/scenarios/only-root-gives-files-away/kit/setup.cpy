[install]
Chown [ROOT]/target/page.html - root:root
