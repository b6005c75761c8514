[install]
CopyFile $(current_dir)/$(edition)index.html - [ROOT]/target/site$(edition)
