-- => "late"
with timeout of 2 seconds
	try
		do shell script "sleep 0.1; exit 9"
	on error number 9
		"late"
	end try
end timeout
