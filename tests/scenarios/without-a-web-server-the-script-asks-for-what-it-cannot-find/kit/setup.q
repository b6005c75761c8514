[install]
Text user nouser - h User
DirExist docs nodocs - h Folder of the pages
Text x nodocs false h Never asked
