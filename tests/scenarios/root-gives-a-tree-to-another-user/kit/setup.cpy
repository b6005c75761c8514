[install]
Chown [ROOT]/target/data - $(owner)
