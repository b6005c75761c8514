[install]
Dir folder - - h Where shall all the pages of this beautiful site be put, that is in what folder of the server
