[install]
[]
Text never - - h Never asked
