[]
WFile [ROOT]/target/never product
