[install]
Text title - - h Überschrift
