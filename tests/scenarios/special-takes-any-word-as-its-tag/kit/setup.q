[-automate]
