-- => -48
do shell script "mkdir -p $DIR/c $DIR/d; touch $DIR/c/g $DIR/d/g"
try
	tell application "Finder" to duplicate (POSIX file "$DIR/c/g" as alias) to (POSIX file "$DIR/d" as alias)
on error number n
	n
end try
