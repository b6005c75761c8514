[upgrade]
Rename [ROOT]/target/news.html [ROOT]/target/old.html
WFile [ROOT]/target/never yes
