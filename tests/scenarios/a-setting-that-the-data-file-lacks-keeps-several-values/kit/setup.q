[install]
Text site - - h Site
Copy title - - h site
Text title - - h Title
