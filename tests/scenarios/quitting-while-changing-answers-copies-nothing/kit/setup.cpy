[install]
WFile [ROOT]/target/never name
