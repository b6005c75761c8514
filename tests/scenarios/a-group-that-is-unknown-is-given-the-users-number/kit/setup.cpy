[install]
Chown [ROOT]/target/data/* - nobody:no-such-group
