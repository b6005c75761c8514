[install]
Text name - - h Name
Text drive - - h Drive
