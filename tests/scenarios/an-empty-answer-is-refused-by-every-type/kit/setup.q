[install]
Text name - - h Name
YN public - - h Public
Dir folder - - h Folder
DirExist site - - h Site
DirEmpty work - - h Work
File list - - h File
FileExist page - - h Page
FileName logo - - h Logo
