[upgrade]
DirExist folder - - h Folder
