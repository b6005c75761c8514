[install]
DirExist folder - - h Folder
Copy last - - h product
