[install]
Chmod [ROOT]/target/*.cgi - 755
WFile [ROOT]/target/never yes
