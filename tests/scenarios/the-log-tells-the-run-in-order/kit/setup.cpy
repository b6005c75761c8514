[install]
CopyFile $(current_dir)/page - $(site)
CopyFile $(current_dir)/page - $(site) old
WFile $(site)/title title
