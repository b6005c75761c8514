[upgrade]
WFile [ROOT]/target/name product
