[install]
Chmod [ROOT]/target/site - 750
