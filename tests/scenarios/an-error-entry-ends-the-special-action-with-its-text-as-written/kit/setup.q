[check]
Exist $(site) found
Error found h $(product) is not in $(site).
Text never - - h Never asked
