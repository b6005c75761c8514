[tidy]
Text days - - h Days
