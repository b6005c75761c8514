[remove]
RmDir [ROOT]/target/site/* keep*
