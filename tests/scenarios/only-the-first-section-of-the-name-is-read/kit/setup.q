Text early - - h Early
[install] of last year
Text old - - h Old
  [INSTALL]	
Text name - - h Name
[remove]
Text bye - - h Bye
[install]
Text late - - h Late
