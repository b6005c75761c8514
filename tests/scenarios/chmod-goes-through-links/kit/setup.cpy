[tidy]
Chmod [ROOT]/target/current - 600
Chmod [ROOT]/target/next - 755
