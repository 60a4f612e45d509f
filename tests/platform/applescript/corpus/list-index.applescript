-- error -1728: Can’t get item 9 of {1, 2}.
item 9 of {1, 2}
