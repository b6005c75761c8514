[tidy]
Error ready Not ready yet.
WFile [ROOT]/target/after yes
