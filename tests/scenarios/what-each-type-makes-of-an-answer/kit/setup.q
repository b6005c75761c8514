[install]
Text name - - h Name
Dir folder - - h Folder
Dir share - - h Share
File file - - h File
FileName archive - - h Archive
FileName profile - - h Profile
FileName logo - - h Logo
DirExist site - - h Site
# that something is there is all that these two ask for: a file will do for a folder and the other way round
DirExist page - - h Page
FileExist docs - - h Docs
