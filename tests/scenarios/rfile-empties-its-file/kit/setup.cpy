[tidy]
RFile [ROOT]/target/note note
RFile [ROOT]/target/new fresh
RFile [ROOT]/target/lost/note note
WFile [ROOT]/target/word note
