[tidy]
WFile [ROOT]/target/days days
