[install]
WFile $(work)/place work
