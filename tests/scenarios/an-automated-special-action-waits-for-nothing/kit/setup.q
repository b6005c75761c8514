[tidy]
Text days - - h How many days are kept
