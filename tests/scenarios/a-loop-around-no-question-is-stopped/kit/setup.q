[remove]
Exist [ROOT]/target/stopped stopped
Loop stopped 0
Text name - - h Name
