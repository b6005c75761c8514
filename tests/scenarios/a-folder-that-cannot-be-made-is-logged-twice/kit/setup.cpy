[install]
MkDir [ROOT]/target/site/img
WFile [ROOT]/target/never yes
