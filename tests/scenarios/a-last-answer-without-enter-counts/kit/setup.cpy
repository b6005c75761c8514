[install]
WFile [ROOT]/target/name name
WFile [ROOT]/target/town town
