-- => "new.txt"
do shell script "mkdir -p $DIR/from $DIR/into; echo x > $DIR/from/old.txt"
tell application "Finder"
	move (POSIX file "$DIR/from/old.txt" as alias) to (POSIX file "$DIR/into" as alias)
	set name of (POSIX file "$DIR/into/old.txt" as alias) to "new.txt"
end tell
do shell script "ls $DIR/into"
