[install]
Text name - - h Name
Text town - - h Town
