[install]
WFile [ROOT]/target/folder folder
WFile [ROOT]/target/name name
