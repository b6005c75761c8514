[install]
Dir folder - - h Where is $(product) to be put
Text name - - h Your name
YN paid - - h Has $(name) $(Product)paid $(x
