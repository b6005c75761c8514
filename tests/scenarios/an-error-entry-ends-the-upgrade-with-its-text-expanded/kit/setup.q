[upgrade]
Exist $(site) found
Error found h $(product)$(nosuch) is not in $(site).
Text never - - h Never asked
