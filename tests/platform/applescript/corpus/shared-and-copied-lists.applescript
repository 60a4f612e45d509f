-- => {{1, 2, 9}, {1, 2}}
set a to {1, 2}
set b to a
copy a to c
set end of b to 9
{a, c}
