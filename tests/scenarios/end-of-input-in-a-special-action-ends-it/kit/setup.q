[mail]
Text relay - - h Relay
