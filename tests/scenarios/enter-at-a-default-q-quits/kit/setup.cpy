[install]
WFile [ROOT]/target/never quality
