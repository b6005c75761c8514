[install]
Text name - - h Name
YN sure - - h Sure
DirExist folder - - h Folder
DirEmpty fresh - - h New folder
FileExist file - - h File
