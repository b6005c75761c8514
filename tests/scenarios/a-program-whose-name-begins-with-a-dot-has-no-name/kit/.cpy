[install]
WFile [ROOT]/target/name product
