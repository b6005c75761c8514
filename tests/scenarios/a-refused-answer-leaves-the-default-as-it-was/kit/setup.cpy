[install]
WFile $(site)/name product
