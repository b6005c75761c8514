[install]
WFile $(docs)/user user
