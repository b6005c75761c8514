[install]
Text
YN confirm
Text name -
Text name - -
Text name - - h
Ask city - - h City
Error city
Error city h
Loop again
Loop
Exist
Exist /etc
Text mail - - h Mail
YN right - - h Right
# mail is entry 1: only what is asked here counts
Loop right 1
