[install]
Text action - - h Action
Text name - - h Name
