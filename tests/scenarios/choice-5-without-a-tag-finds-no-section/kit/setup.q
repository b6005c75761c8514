[]
Text never - - h Never asked
