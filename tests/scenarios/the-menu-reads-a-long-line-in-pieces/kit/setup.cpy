[install]
WFile [ROOT]/target/port port
