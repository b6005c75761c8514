[install]
WFile [ROOT]/target/unknown-setting yes nosuch
WFile [ROOT]/target/unknown-setting-with-a-word yes nosuch pro
WFile [ROOT]/target/setting-without-value yes bare
WFile [ROOT]/target/true-setting yes full
WFile [ROOT]/target/false-setting no lite
WFile [ROOT]/target/neither-true-nor-false no edition
WFile [ROOT]/target/same-word yes edition pro
WFile [ROOT]/target/other-word no edition basic
WFile [ROOT]/target/same-setting yes edition wanted
WFile [ROOT]/target/true-but-another-text no full true
# "lite" is a setting, so its value "off" is what the edition is compared with.
WFile [ROOT]/target/name-of-a-setting no edition lite
