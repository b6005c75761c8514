[install]
Error nosuch Never shown.
Error ready Never shown.
Error perhaps Never shown.
WFile [ROOT]/target/passed yes
Error room The $(product) needs  more room.
