-- => "8080"
set conf to "port=8080" & linefeed & "host=localhost"
repeat with aLine in paragraphs of conf
	if aLine starts with "port=" then return text 6 thru -1 of aLine
end repeat
"none"
