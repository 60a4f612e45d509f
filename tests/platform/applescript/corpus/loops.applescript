-- => {15, {5, 3, 1}, 4, 3}
set total to 0
repeat with i from 1 to 5
	set total to total + i
end repeat
set descending to {}
repeat with i from 5 to 1 by -2
	set end of descending to i
end repeat
set n to 1
repeat while n < 4
	set n to n + 1
end repeat
set m to 0
repeat until m = 3
	set m to m + 1
end repeat
{total, descending, n, m}
