[install]
Text name - - h Name
