[install]
Error nosuch h Unknown
Error bare h Bare
Error good h Good
Error odd h Odd
Text name - - h Name
Loop nosuch 0
Loop bare 0
Loop good 0
Loop odd 0
