[install]
# no value
Text a nosuch - h Asked 1
Text b bare - h Asked 2
Text c nosuch mysql h Asked 3
# no comparison
Text d on - h Asked 4
Text e off - h Skipped
Text f odd - h Skipped
# the word itself
Text g base mysql h Asked 5
Text h base MySQL h Skipped
Text i on -- h Skipped
# the value of the setting that it names
Text j base kind h Asked 6
Text k base other h Skipped
