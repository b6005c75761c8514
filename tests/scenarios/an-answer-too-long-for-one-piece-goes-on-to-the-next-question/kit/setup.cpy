[install]
WFile [ROOT]/target/motto motto
WFile [ROOT]/target/second second
