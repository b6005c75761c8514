[remove]
WFile [ROOT]/target/never product
