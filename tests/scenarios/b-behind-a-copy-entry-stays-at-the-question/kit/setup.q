[install]
Text login - - h Login
Copy box - - h login
Text box - - h Mail box
