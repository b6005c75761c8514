[install]
DirExist docs - - docs Which folder holds the pages
Text title - - title What is the site called
