-- error -2701: Can’t divide 1 by zero.
1 / 0
