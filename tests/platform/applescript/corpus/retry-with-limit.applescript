-- error 75: still locked after 3 tries
set tries to 0
repeat
	try
		do shell script "exit 75"
		exit repeat
	on error number n
		set tries to tries + 1
		if tries ≥ 3 then error "still locked after " & tries & " tries" number n
	end try
end repeat
