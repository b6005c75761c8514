[install]
Chmod [ROOT]/target/* keep*,*.CGI 600
