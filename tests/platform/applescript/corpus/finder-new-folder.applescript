-- => {"Example", true, false}
tell application "Finder"
	set place to make new folder at (POSIX file "$DIR" as alias) with properties {name:"Example"}
	set n to name of place
	set there to exists folder "Example" of (POSIX file "$DIR" as alias)
	set gone to exists (POSIX file "$DIR/none")
end tell
{n, there, gone}
