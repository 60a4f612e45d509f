-- => -43
try
	POSIX file "$DIR/nothing/here" as alias
on error number n
	n
end try
