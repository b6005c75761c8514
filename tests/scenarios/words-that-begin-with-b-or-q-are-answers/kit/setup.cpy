[install]
WFile [ROOT]/target/1 one
WFile [ROOT]/target/2 two
WFile [ROOT]/target/3 three
