[install]
DirExist site - - h Site
