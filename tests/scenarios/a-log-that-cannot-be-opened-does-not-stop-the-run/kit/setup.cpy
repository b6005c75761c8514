[install]
WFile [ROOT]/target/name name
