[install]
Text a - - h Under which name shall this site be known to those who are to find it there      	 (one word will do)
