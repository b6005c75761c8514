[install]
WFile [ROOT]/target/never yes wanted
MkDir [ROOT]/target/never wanted yes
Grow a b c wanted
