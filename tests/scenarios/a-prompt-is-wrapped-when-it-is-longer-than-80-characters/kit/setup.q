[install]
Text a - - h Under which name shall this site be known to those who are to find it there
Text b - - h Under which title shall this site be known to those who are to find it there
Text c - - h Under which titles shall this site be known to those who are to find it there
