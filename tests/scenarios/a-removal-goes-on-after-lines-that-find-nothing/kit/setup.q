[remove]
