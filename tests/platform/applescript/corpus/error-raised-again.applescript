-- error 7: Cannot install: no space
try
	error "no space" number 7
on error message number code
	error "Cannot install: " & message number code
end try
