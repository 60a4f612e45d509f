-- => "new"
do shell script "mkdir -p $DIR/a $DIR/b; echo new > $DIR/a/f; echo old > $DIR/b/f"
tell application "Finder" to duplicate (POSIX file "$DIR/a/f" as alias) to (POSIX file "$DIR/b" as alias) with replacing
do shell script "cat $DIR/b/f"
