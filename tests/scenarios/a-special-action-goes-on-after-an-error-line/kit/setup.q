[tidy]
