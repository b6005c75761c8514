[remove]
RmFile [ROOT]/target/old/*.list KEEP*
