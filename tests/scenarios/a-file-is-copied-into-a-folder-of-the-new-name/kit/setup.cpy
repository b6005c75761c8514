[install]
Rename [ROOT]/target/news.html [ROOT]/target/old
