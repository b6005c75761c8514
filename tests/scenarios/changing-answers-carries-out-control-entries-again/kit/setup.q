[install]
Text site - - h Site
Copy title - - h site
Exist [ROOT]/target/$(site) taken
Text title - - h Title
YN replace taken - h Replace it
