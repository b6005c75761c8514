[install]
YN public - - h Public
