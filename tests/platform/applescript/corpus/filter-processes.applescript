-- => {}
tell application "System Events"
	get name of every process whose name is "no-such-process"
end tell
