[install]
DirEmpty work - - h Work folder
