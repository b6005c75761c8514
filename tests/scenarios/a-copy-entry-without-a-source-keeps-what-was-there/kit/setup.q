[install]
Copy mail - - h nosuch
Copy name off - h user
Text mail - - h Mail
Text name - - h Name
