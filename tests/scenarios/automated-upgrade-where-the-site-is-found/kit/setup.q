[upgrade]
Text title - - h Title
