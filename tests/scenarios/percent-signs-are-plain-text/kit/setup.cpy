[install]
WFile $(folder)/rate rate
