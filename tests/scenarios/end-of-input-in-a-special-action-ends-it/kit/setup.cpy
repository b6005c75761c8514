[mail]
WFile [ROOT]/target/never relay
