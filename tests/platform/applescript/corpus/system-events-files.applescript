-- => {true, false, "list.txt"}
do shell script "touch $DIR/list.txt"
tell application "System Events"
	{exists file "$DIR/list.txt", exists folder "$DIR/none", name of file "$DIR/list.txt"}
end tell
