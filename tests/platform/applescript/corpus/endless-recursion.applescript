-- => -2706
on f(n)
	f(n + 1)
end f
try
	f(1)
on error number n
	n
end try
