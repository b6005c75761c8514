[install]
WFile [ROOT]/target/work work
