[install]
Text port - - h Port
