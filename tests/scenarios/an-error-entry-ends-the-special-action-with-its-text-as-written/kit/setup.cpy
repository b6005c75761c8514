[check]
WFile [ROOT]/target/never product
