[install]
Exist $(site) found
Error found h $(product) needs\na database.
Text never - - h Never asked
