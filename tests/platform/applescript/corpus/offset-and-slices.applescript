-- => {6, "Example", "/usr/lib"}
set p to "/usr/lib/Example"
set i to offset of "lib" in p
{i, text ((length of p) - 6) thru -1 of p, text 1 thru (i + 2) of p}
