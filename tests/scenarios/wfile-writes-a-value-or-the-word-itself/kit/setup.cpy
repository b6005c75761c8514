[install]
WFile [ROOT]/target/title title
WFile [ROOT]/target/word Title
WFile [ROOT]/target/lost/title title
WFile [ROOT]/target/never title
