[install]
WFile [ROOT]/target/one one
WFile [ROOT]/target/two two
