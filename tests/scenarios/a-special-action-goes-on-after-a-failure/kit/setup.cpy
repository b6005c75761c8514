[tidy]
RmFile [ROOT]/target/*.tmp -
WFile [ROOT]/target/note tidied
