-- error -1728: Can’t get application "No Such Editor".
tell application "No Such Editor"
	activate
end tell
