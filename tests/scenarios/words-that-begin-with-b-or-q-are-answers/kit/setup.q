[install]
Text one - - h First
Text two - - h Second
Text three - - h Third
