# setup.cpy - what is copied, made and removed, a section for each action.
#
# A line is a command, its words, and at the end, if it is not always to run, a control and a compare word: it runs when
# the setting "control" is true, or, with a compare word, when it has that value, in capitals or not. (A control that has
# no value stops nothing.) The words, "not" being a list of names to leave out, such as *.bak,CVS, or "-" for none:
#
#     CopyFile, CopyDir, Chown, Chmod     source not target
#     RmFile, RmDir                       source not
#     Ini, Rename, Exist, WFile, RFile    source target
#     MkDir                               source
#     Error                               setting, and a message up to the end of the line
#
# The last part of a source (and of the target of a copy) is a wildcard: every entry that it fits is meant. So a folder
# with * or ? in its own name cannot be served. Words hold no blanks, but the values of settings may: $(name) is expanded
# after the line was split. The whole section is expanded before its first line runs: what Exist finds out can control a
# later line, but not become part of its paths.
#
# Install and upgrade stop at the first line that fails; a copy that finds nothing to copy and a removal that finds nothing
# to remove are failures too. So ask Exist first where something may be missing. Remove and special actions go on.

[install]
# First the notes, so that even an installation that stops halfway can be removed. WFile writes the value of the setting
# that is its second word. MkDir makes missing folders on the way, and is content with one that is there.
MkDir $(record_dir)
WFile $(record_dir)/docs_root docs_root
WFile $(record_dir)/scripts_dir scripts_dir
WFile $(record_dir)/folder folder
WFile $(record_dir)/cgi_url cgi_url
WFile $(record_dir)/title title
WFile $(record_dir)/data_dir data_dir
WFile $(record_dir)/log_file log_file
WFile $(record_dir)/docs_there docs_there
WFile $(record_dir)/scripts_there scripts_there
WFile $(record_dir)/log_there log_there
WFile $(record_dir)/group group
WFile $(record_dir)/for_server for_server

# A copy never makes the folder it copies to: make it first. Chmod takes a mode as an octal number; a folder takes all
# that is in it along, so these lines come while it is empty, and only for a folder that this kit makes.
MkDir $(docs_root)/$(folder)
MkDir $(scripts_dir)/$(folder)
MkDir $(data_dir)
Chmod $(docs_root)/$(folder) - 755 folder_there false
Chmod $(scripts_dir)/$(folder) - 755 programs_there false
Chmod $(scripts_dir)/$(folder) - 750 lock_folder
Chown $(scripts_dir)/$(folder) - root:$(group) lock_folder

# The static pages: files only (CopyFile passes over folders), without templates and drafts; then the folder help with all
# that is in it, again without drafts. For the top level the case of names does not matter in "not", deeper down it does.
CopyFile $(current_dir)/files/pages/* *.tmpl,*.draft $(docs_root)/$(folder)
CopyDir $(current_dir)/files/pages/help *.draft $(docs_root)/$(folder)
# The CGI programs are copied, not written through Ini: it would take the "$(...)" of a shell program for settings.
CopyFile $(current_dir)/files/programs/* *.tmpl,*.draft $(scripts_dir)/$(folder)

# Ini writes a text file from a template: every $(name) becomes the setting's value, and blanks around a line go. It may
# be any text; and it is the way to copy one file under another name.
Ini $(current_dir)/files/pages/index.html.tmpl $(docs_root)/$(folder)/index.html
Ini $(current_dir)/files/programs/noticeboard.conf.tmpl $(scripts_dir)/$(folder)/noticeboard.conf
Ini $(rules_file) $(docs_root)/$(folder)/rules.txt

# The folder of the notices gets a mark, by which a later installation knows it, and the log its first line. Both only
# where there is none yet, for WFile and Ini replace a file. (WFile writes no line end, so the log is made by Ini.)
Exist $(data_dir)/board.id board_there
WFile $(data_dir)/board.id title board_there false
Ini $(current_dir)/files/postings.tmpl $(log_file) log_there false

# Modes: programs can be executed, the rest can be read. In "not", Chmod and Chown look at the whole path, not only at
# the last part.
Chmod $(docs_root)/$(folder)/index.html - 644
Chmod $(docs_root)/$(folder)/board.css - 644
Chmod $(docs_root)/$(folder)/rules.txt - 644
Chmod $(docs_root)/$(folder)/help - 755
Chmod $(docs_root)/$(folder)/help/*.html - 644
Chmod $(scripts_dir)/$(folder)/list.cgi - 755
Chmod $(scripts_dir)/$(folder)/post.cgi - 755
Chmod $(scripts_dir)/$(folder)/board.sh - 644
Chmod $(scripts_dir)/$(folder)/noticeboard.conf - 644
# The notices of an earlier board keep the modes they have. When everybody is to write, nobody may delete what is not his
# (1777); naming the files in "not" leaves them as they are.
Chmod $(data_dir) *.notice,*.id 755 adopt false
Chmod $(data_dir) *.notice,*.id 1777 shared
Chmod $(log_file) - 644 log_there false
Chmod $(log_file) - 666 shared
# Owners: user, colon, group; without the colon, one name would be taken for both. Only root can do this.
Chown $(data_dir) - $(owner):$(group) give_away
Chown $(log_file) - $(owner):$(group) give_away
# In the server's own folders the programs stay root's, so that a visitor who tricks one of them cannot rewrite them; the
# server's group may run and read them, nobody else may. First the owner: its change may take bits of the mode away.
Chown $(scripts_dir)/$(folder)/list.cgi - root:$(group) for_server
Chown $(scripts_dir)/$(folder)/post.cgi - root:$(group) for_server
Chown $(scripts_dir)/$(folder)/board.sh - root:$(group) for_server
Chown $(scripts_dir)/$(folder)/noticeboard.conf - root:$(group) for_server
Chmod $(scripts_dir)/$(folder)/list.cgi - 750 for_server
Chmod $(scripts_dir)/$(folder)/post.cgi - 750 for_server
Chmod $(scripts_dir)/$(folder)/board.sh - 640 for_server
Chmod $(scripts_dir)/$(folder)/noticeboard.conf - 640 for_server

# Error fails, with its message, when its setting is false: here when what matters most did not arrive.
Exist $(scripts_dir)/$(folder)/post.cgi program_there
Error program_there The programs did not arrive in $(scripts_dir)/$(folder).
# The note of earlier notices has served its purpose; it is there only when there are such notices.
Exist $(current_dir)/kept_notices note_there
RmFile $(current_dir)/kept_notices - note_there
# The last line: the version says that all lines before it succeeded.
WFile $(record_dir)/version version

[upgrade]
# Until the last line has run, this is no complete board. RmFile fails when there is no such file, so ask first.
Exist $(record_dir)/version version_there
RmFile $(record_dir)/version - version_there
WFile $(record_dir)/title title

# What should be there and is not comes back; notices that are there are not touched.
MkDir $(docs_root)/$(folder)
MkDir $(scripts_dir)/$(folder)
MkDir $(data_dir)
Exist $(data_dir)/board.id board_there
WFile $(data_dir)/board.id title board_there false

# An old release had its help on a single page.
Exist $(docs_root)/$(folder)/help.html page_there
RmFile $(docs_root)/$(folder)/help.html - page_there

# Pages and programs are replaced.
CopyFile $(current_dir)/files/pages/* *.tmpl,*.draft $(docs_root)/$(folder)
CopyDir $(current_dir)/files/pages/help *.draft $(docs_root)/$(folder)
CopyFile $(current_dir)/files/programs/* *.tmpl,*.draft $(scripts_dir)/$(folder)
Ini $(current_dir)/files/pages/index.html.tmpl $(docs_root)/$(folder)/index.html
# The old settings file is kept beside the new one, for the changes that the operator may have made in it. (A Rename that
# fails tries to copy its source into its target, as CopyFile does. Here that finds no folder and fails as well.)
Exist $(scripts_dir)/$(folder)/noticeboard.conf conf_there
Rename $(scripts_dir)/$(folder)/noticeboard.conf $(scripts_dir)/$(folder)/noticeboard.conf.old conf_there
Ini $(current_dir)/files/programs/noticeboard.conf.tmpl $(scripts_dir)/$(folder)/noticeboard.conf
Ini $(rules_file) $(docs_root)/$(folder)/rules.txt new_rules

Chmod $(docs_root)/$(folder)/index.html - 644
Chmod $(docs_root)/$(folder)/board.css - 644
Chmod $(docs_root)/$(folder)/rules.txt - 644 new_rules
Chmod $(docs_root)/$(folder)/help - 755
Chmod $(docs_root)/$(folder)/help/*.html - 644
Chmod $(scripts_dir)/$(folder)/list.cgi - 755
Chmod $(scripts_dir)/$(folder)/post.cgi - 755
Chmod $(scripts_dir)/$(folder)/board.sh - 644
Chmod $(scripts_dir)/$(folder)/noticeboard.conf - 644
# As at the installation; the note of it was read back by the init script.
Chown $(scripts_dir)/$(folder)/list.cgi - root:$(group) for_server
Chown $(scripts_dir)/$(folder)/post.cgi - root:$(group) for_server
Chown $(scripts_dir)/$(folder)/board.sh - root:$(group) for_server
Chown $(scripts_dir)/$(folder)/noticeboard.conf - root:$(group) for_server
Chmod $(scripts_dir)/$(folder)/list.cgi - 750 for_server
Chmod $(scripts_dir)/$(folder)/post.cgi - 750 for_server
Chmod $(scripts_dir)/$(folder)/board.sh - 640 for_server
Chmod $(scripts_dir)/$(folder)/noticeboard.conf - 640 for_server

# RFile, in a copy script, empties the file (only the init script's RFile reads one). That is what is wanted here; the
# setting "emptied" gets nothing.
RFile $(log_file) emptied fresh_log

WFile $(record_dir)/version version

[remove]
# Only what this kit installed goes, by its name: others may have put files beside it.
RmFile $(docs_root)/$(folder)/index.html -
RmFile $(docs_root)/$(folder)/board.css -
RmFile $(docs_root)/$(folder)/rules.txt -
RmDir $(docs_root)/$(folder)/help -
RmFile $(scripts_dir)/$(folder)/list.cgi -
RmFile $(scripts_dir)/$(folder)/post.cgi -
RmFile $(scripts_dir)/$(folder)/board.sh -
RmFile $(scripts_dir)/$(folder)/noticeboard.conf -
RmFile $(scripts_dir)/$(folder)/noticeboard.conf.old -
# The notices' folder was empty when this kit took it, so all in it is the board's. When the notices stay, a note says
# where they are, and the next installation offers to show them again.
RmDir $(data_dir) - keep_notices false
WFile $(current_dir)/kept_notices data_dir keep_notices
RmFile $(log_file) - log_there false

# A folder goes only when nothing else is in it. RmDir would take everything along; Rename is more careful: an empty
# folder takes the place of an empty folder, never of one with something in it. So the husk is gone exactly when the
# folder was empty, and then it is the husk that RmDir removes. The flags *_busy are true (in setup.dat) until the husk
# has proved the contrary; without a husk they stay true. (On another file system than the kit's, Rename cannot work, and
# the empty folders stay.)
MkDir $(record_dir)/husk
Exist $(record_dir)/husk husk_made
Rename $(record_dir)/husk $(scripts_dir)/$(folder) husk_made
Exist $(record_dir)/husk programs_busy husk_made
RmDir $(scripts_dir)/$(folder) - programs_busy false

MkDir $(record_dir)/husk
Exist $(record_dir)/husk husk_made
Rename $(record_dir)/husk $(docs_root)/$(folder) husk_made
Exist $(record_dir)/husk pages_busy husk_made
RmDir $(docs_root)/$(folder) - pages_busy false

# The two folders around them, but only when this kit made them.
MkDir $(record_dir)/husk
Exist $(record_dir)/husk husk_made
Rename $(record_dir)/husk $(scripts_dir) scripts_there false
Exist $(record_dir)/husk cgi_busy husk_made
RmDir $(scripts_dir) - cgi_busy false

MkDir $(record_dir)/husk
Exist $(record_dir)/husk husk_made
Rename $(record_dir)/husk $(docs_root) docs_there false
Exist $(record_dir)/husk docs_busy husk_made
RmDir $(docs_root) - docs_busy false

# At last the notes themselves.
RmDir $(record_dir) -

[backup]
# Everything but hidden files, which are notices that are just being written.
MkDir $(backup_dir)/notices-$(stamp)
CopyFile $(data_dir)/* .* $(backup_dir)/notices-$(stamp)
