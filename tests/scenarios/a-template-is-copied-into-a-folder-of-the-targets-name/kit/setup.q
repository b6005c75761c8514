[install]
