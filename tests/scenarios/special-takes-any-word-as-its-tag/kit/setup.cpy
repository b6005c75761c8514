[-automate]
WFile [ROOT]/target/done product
