-- Compares dotted versions part by part.
-- => {true, false, false}
on isOlder(a, b)
	set AppleScript's text item delimiters to "."
	set x to text items of a
	set y to text items of b
	set AppleScript's text item delimiters to ""
	repeat with i from 1 to 3
		set p to 0
		set q to 0
		if i ≤ (count x) then set p to (item i of x) as integer
		if i ≤ (count y) then set q to (item i of y) as integer
		if p < q then return true
		if p > q then return false
	end repeat
	return false
end isOlder
{isOlder("1.9.2", "1.10"), isOlder("2.0", "2"), isOlder("3.0.1", "3")}
