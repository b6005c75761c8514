[install]
Exist $(docs)/index.html page
Exist $(docs)/news.db base
YN keep page - h Keep the page
YN move base - h Move the data base
