[tidy]
CopyDir [ROOT]/target/site - [ROOT]/target/site
CopyDir [ROOT]/target/site - [ROOT]/target
