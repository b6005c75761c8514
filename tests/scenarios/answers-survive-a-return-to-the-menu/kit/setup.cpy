[upgrade]
WFile [ROOT]/target/name name
