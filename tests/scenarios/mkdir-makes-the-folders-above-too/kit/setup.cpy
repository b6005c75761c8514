[install]
MkDir [ROOT]/target/srv/www/gazette
MkDir [ROOT]/target/srv/www/gazette
MkDir [ROOT]/target/srv/log/
