[install]
Text name - - h Name
Text nick - - h Nickname
Text motto - - h Motto
