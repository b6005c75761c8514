[install]
Text title - - h Title
Text name - - h Name
YN right - - h Is that right
Loop right 1
Text mail - - h Mail
