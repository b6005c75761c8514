[install]
YN mail - - h Mail
YN news - - h News
YN search - - h Search
YN archive - - h Archive
YN forum - - h Forum
YN chat - - h Chat
YN shop - - h Shop
# x1 counts as no: its second character is a digit, and as a number the whole is 0
YN wiki - - h Wiki
