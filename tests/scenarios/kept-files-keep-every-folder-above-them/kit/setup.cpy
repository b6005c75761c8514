[remove]
RmDir [ROOT]/target/site *.cfg
