WFile [ROOT]/target/early never
[install] of last year
WFile [ROOT]/target/old never
  [INSTALL]	
WFile [ROOT]/target/title product
[remove]
RmFile [ROOT]/target/title -
[install]
WFile [ROOT]/target/late never
