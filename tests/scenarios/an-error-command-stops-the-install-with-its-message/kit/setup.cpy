[install]
Exist [ROOT]/target/library found
Error found Install the library first.
WFile [ROOT]/target/never product
