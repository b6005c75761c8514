[install]
RmFile [ROOT]/target/* -
