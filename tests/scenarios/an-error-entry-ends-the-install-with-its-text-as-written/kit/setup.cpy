[install]
WFile [ROOT]/target/never product
