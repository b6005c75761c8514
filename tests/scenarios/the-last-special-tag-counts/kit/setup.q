[tidy]
[check]
