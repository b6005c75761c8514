[install]
WFile [ROOT]/target/public public
