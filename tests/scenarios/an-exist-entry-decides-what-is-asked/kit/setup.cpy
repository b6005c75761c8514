[install]
WFile [ROOT]/target/page page
WFile [ROOT]/target/base base
