[install]
WFile [ROOT]/target/box box
