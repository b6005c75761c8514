# setup.q - the questions, a section for each action.
#
# A question is: type, setting, control, compare, help, and the text up to the end of the line. "-" stands for no control
# and no compare. It is asked when its control is true, or, with a compare word, when the control has exactly that value;
# a control without any value counts as "ask". The default is the value of the setting, shown as [value]? behind the text,
# so a text does without a question mark. References such as $(docs_root) are expanded in texts.
#
# Four types ask nothing: Copy, Exist, Error and Loop. They run whatever their control says. Loop jumps to the entry with
# the given number when its setting is false; the entries of a section are counted from 0, these four included, and the
# numbers stand here as comments.
#
# The words of a line cannot hold blanks; an answer can, and its blanks are kept. A backslash begins an escape (\n, \t):
# a text with escapes ends in as many repeated characters, so do without them; long texts are wrapped anyway.

[install]
# 0-1: a test before anything is asked. Exist: path, then the setting that becomes true or false. Error: setting, help,
# text; it stops the action when the setting is false. The text is shown as it stands, without expanding $(...).
Exist $(current_dir)/files/pages kit_whole
Error kit_whole kit The folder 'files' is missing: start the installer in the folder of the unpacked kit.
# 2: a second installation beside the first would leave nobody to remove the first.
Error not_installed kit A board is installed from this kit already: choose upgrade or remove.

# 3: asked only when the init script found a web server, that is, when no_server is exactly false. YN takes yes and no in
# many spellings and stores true or false. The default is no, for an automated run must not touch the server unasked.
YN use_server no_server false server A web server was found, with pages in $(http_root) and programs in $(http_scripts). Put the board there
# 4: a jump over the next four entries when the answer is no. This is how entries that ask nothing are made conditional.
Loop use_server 9
# 5-8: Copy gives its setting the value of the setting that is its text: new defaults for the questions below.
Copy docs_root - - server http_root
Copy scripts_dir - - server http_scripts
Copy owner - - server http_user
Copy group - - server http_group

# 9-10: Dir takes any path; a "/" at its end is cut off. The folder is made when it is not there.
Dir docs_root - - pages Which folder holds the web server's pages (the document root)
Dir scripts_dir - - programs Which folder holds the web server's CGI programs

# 11-15: a question that is repeated until it is settled. First the flag is set back to true, or an earlier "no" would
# still stand there. FileName reduces what is typed to a bare name: /srv/board.d becomes board.
Copy share_folder - - folder always
FileName folder - - folder Under which name is the board to stand there (its own folder in both)
Exist $(docs_root)/$(folder) folder_there
YN share_folder folder_there - folder $(docs_root)/$(folder) is there already. Put the board into it
Loop share_folder 11

# 16-17: Text takes anything, but not nothing.
Text cgi_url - - url Under which URL path does the web server run the programs of $(scripts_dir)
Text title - - title What is the board to be called

# 18: FileExist insists on something that exists.
FileExist rules_file - - rules Which text file holds the rules of the house

# 19-20: the two exclude each other. DirEmpty takes an empty folder, or one that is not there yet: so the board never
# mixes its notices with files that it did not write, and its removal deletes only its own.
YN adopt kept_notices - data There are notices of an earlier board in $(data_dir). Show them again
DirEmpty data_dir adopt false data Where are the notices to be kept (an empty or a new folder)

# 21-22: File takes any path. Whether the file was there decides who may delete it later.
File log_file - - log In which file is every posting to be noted
Exist $(log_file) log_there

# 23-26: changing the owner is root's business, and only offered when the init script took the operator for root. The
# other way, when the files stay with the operator, is to let everybody write; "false" names no setting and is compared
# as the word that it is.
YN give_away is_root - owner You seem to be root. Give the notices to the user the web server runs as
Text owner give_away - owner Which user is that
Text group give_away - owner And which group
YN shared give_away false owner Does the web server run as another user than you (everybody may then write into the folder of the notices)

# 27-29: which folders the kit makes, and so may remove one day.
Exist $(docs_root) docs_there
Exist $(scripts_dir) scripts_there
Exist $(scripts_dir)/$(folder) programs_there
# 30-36: in the server's own folders the programs go to its group, and with them their folder when it is new; so the flags
# are true under two and three conditions. First they are set back, or an earlier answer would still stand there. Then
# each jump leaves out the rest when its setting is false; 37 is the end.
Copy for_server - - owner never
Copy lock_folder - - owner never
Loop use_server 37
Copy for_server - - owner give_away
Copy lock_folder - - owner give_away
Loop programs_there 37
Copy lock_folder - - owner never

[upgrade]
# 0: in this section alone, the text of an Error is expanded.
Error installed kit No board is noted in $(record_dir): install one first.
# 1
Text title - - title What is the board to be called
# 2-3: the second question depends on the first.
YN new_rules - - rules Replace the rules of the house
FileExist rules_file new_rules - rules Which text file holds the new rules
# 4
YN fresh_log - - log Empty the log of postings ($(log_file))

[remove]
# 0
Error installed kit There is no board to remove: none was installed from this folder.
# 1: by default everything goes.
YN keep_notices - - data Keep the notices in $(data_dir)
# 2-3: the last moment to stop.
YN sure - - sure Remove the board '$(title)' now
Error sure sure Nothing was removed.

# A section of another name is a special action: setup -special backup
[backup]
# 0
Error installed kit There is no board to back up: none was installed from this folder.
# 1: DirExist insists on a folder that exists; a new one is made in it.
DirExist backup_dir - - backup In which folder is the backup notices-$(stamp) to be made
