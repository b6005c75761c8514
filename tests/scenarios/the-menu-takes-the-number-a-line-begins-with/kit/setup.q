[upgrade]
Text word - - h Word
