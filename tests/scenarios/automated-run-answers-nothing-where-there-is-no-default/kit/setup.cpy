[install]
WFile [ROOT]/target/1 name
# a setting without a value is written as the word itself
WFile [ROOT]/target/2 nick
WFile [ROOT]/target/3 motto
