[tidy]
CopyFile [ROOT]/target/conf/site.cfg - [ROOT]/target/conf
CopyFile [ROOT]/target/new/* - [ROOT]/target/conf
