[upgrade]
Rename [ROOT]/target/news.html [ROOT]/target/today.html
Rename [ROOT]/target/index.new [ROOT]/target/index.html
Rename [ROOT]/target/drafts [ROOT]/target/site/pages
