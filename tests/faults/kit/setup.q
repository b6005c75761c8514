[install]
Exist $(target)/before has_target
Error has_target help The folder to install into is missing.
Copy heading - - help title
Text title - - help What is it called
YN chosen - - help Shall it be chosen
Dir conf_dir chosen - help Where is the configuration to be
DirExist existing - - help Which folder is there already
DirEmpty empty_dir chosen true help Which folder is empty
File log_path - - help Where is the log to be
FileExist existing - - help Which file is there already
FileName bare_name - - help What is the report called
Loop checked 3
Text never chosen no help Never asked

[upgrade]
Exist $(place) site_there
Error site_there help Nothing is installed in $(place).
Text title - - help What is it called now

[remove]
Exist $(place) site_there
Error site_there help There is nothing to remove.
YN chosen - - help Remove it

[everything]
Exist $(place) site_there
Copy heading - - help title
