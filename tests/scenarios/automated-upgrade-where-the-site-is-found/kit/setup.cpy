[upgrade]
WFile [ROOT]/target/title title
