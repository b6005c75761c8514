[tidy]
WFile [ROOT]/target/never days
