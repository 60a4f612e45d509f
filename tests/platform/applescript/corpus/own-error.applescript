-- error 42: The licence is missing.
error "The licence is missing." number 42
