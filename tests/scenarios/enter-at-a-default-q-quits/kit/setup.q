[install]
Text quality - - h Quality
