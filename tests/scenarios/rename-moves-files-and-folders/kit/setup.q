[upgrade]
