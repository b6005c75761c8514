[install]
YN expert - - h Expert
Loop expert 4
Text port - - h Port
Text depth - - h Depth
Text name - - h Name
Loop expert 99
Text cache - - h Cache
