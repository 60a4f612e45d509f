-- error -1700: Can’t make "abc" into type number.
"abc" as number
