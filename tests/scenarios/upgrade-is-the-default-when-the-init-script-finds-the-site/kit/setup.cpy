[upgrade]
CopyFile $(current_dir)/news.html - [ROOT]/target
