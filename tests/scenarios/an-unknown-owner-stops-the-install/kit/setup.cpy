[install]
Chown [ROOT]/target/data - $(owner)
WFile [ROOT]/target/never yes
