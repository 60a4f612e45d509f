-- => false
tell application "System Events"
	exists process "no-such-process"
end tell
