[install]
Text name - - h Name
YN public - - h Public
