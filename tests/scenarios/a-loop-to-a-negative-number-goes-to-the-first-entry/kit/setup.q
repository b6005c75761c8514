[install]
Text name - - h Name
YN sure - - h Sure
Loop sure -3
