[install]
Exist [ROOT]/target/data has_data
Exist [ROOT]/target/site.cfg has_settings
Exist [ROOT]/target/current has_current
CopyFile $(current_dir)/guests - [ROOT]/target/data has_data
CopyFile $(current_dir)/sample.cfg - [ROOT]/target/data has_settings FALSE
CopyFile $(current_dir)/current - [ROOT]/target/data has_current
