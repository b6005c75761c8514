[remove]
RmFile [ROOT]/target/old/* -
RmFile [ROOT]/target/page.html -
