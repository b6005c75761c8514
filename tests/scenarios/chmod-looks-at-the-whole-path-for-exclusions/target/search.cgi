run
