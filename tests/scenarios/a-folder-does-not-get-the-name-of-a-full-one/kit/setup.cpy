[install]
Rename [ROOT]/target/new [ROOT]/target/old
