[upgrade]
WFile [ROOT]/target/never folder
