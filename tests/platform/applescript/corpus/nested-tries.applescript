-- => {"inner", 5, "outer", 6}
set found to {}
try
	try
		error "inner" number 5
	on error m number n
		set found to found & {m, n}
		error "outer" number 6
	end try
on error m number n
	set found to found & {m, n}
end try
found
