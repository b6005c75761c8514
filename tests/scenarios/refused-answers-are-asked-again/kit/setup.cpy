[install]
WFile [ROOT]/target/1 name
WFile [ROOT]/target/2 sure
WFile [ROOT]/target/3 folder
WFile [ROOT]/target/4 fresh
WFile [ROOT]/target/5 file
