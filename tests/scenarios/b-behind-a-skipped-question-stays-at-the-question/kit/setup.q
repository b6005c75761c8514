[install]
YN proxy - - h Use a proxy
Text relay proxy - h Proxy
Text mail - - h Mail
