[install]
Text current_dir - - h Folder
Text name - - h Name
