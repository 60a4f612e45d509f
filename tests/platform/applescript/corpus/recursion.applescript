-- => 120
on factorial(n)
	if n ≤ 1 then return 1
	n * factorial(n - 1)
end factorial
factorial(5)
