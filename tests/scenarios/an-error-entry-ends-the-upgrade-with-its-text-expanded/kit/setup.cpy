[upgrade]
WFile [ROOT]/target/never product
