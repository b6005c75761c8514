[install]
Error ready
WFile [ROOT]/target/never yes
