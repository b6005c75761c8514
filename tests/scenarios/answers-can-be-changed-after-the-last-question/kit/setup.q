[install]
Text one - - h First word
Text two - - h Second word
