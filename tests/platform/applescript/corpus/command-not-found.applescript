-- => 127
try
	do shell script "no-such-command-here 2>/dev/null"
on error number n
	return n
end try
