[install]
Text a - - h First name,\nthen last name
Text c - - h Name\tand \\alias
Text d - - h \Nickname
Text e - - h Drive C:\
