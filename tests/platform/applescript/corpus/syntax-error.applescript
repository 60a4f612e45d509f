-- error -2741: Expected “end” or “end if” but found end of script.
if true then
	set x to 1
