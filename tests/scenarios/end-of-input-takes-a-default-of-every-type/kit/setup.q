[install]
Text name - - h Name
YN public - - h Public
Dir folder - - h Folder
DirExist site - - h Site
DirEmpty work - - h Work folder
File list - - h File
FileExist page - - h Front page
FileName logo - - h Logo
