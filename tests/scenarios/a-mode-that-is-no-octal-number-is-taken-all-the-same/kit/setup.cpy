[install]
# u+x: 69 * 64 - 5 * 8 + 72 = 4448, octal 10540
Chmod [ROOT]/target/letters - u+x
# 649: 6 * 64 + 4 * 8 + 9 = 425, octal 651
Chmod [ROOT]/target/digits - 649
