[install]
Text motto - - h Motto
Text second - - h Second
