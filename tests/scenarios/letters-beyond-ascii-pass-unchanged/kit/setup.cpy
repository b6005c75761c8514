[install]
WFile [ROOT]/target/title title
