[install]
Text rate - - h Rate in % (%d)
DirExist folder - - h Folder
