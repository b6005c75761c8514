[install]
Text name - - h Your name
Text mail - - h Your address
[upgrade]
Text name - - h Name
