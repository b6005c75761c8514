[tydi]
WFile [ROOT]/target/never product
