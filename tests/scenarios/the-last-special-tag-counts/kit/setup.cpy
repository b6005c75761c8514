[tidy]
WFile [ROOT]/target/tidy product
[check]
WFile [ROOT]/target/check product
