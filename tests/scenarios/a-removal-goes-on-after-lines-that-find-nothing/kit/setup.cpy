[remove]
RmFile [ROOT]/target/site/*.list -
RmDir [ROOT]/target/data -
RmDir [ROOT]/target/gone/below -
RmDir [ROOT]/target/site -
