-- => {"archive.tar", "gz"}
set theName to "archive.tar.gz"
set AppleScript's text item delimiters to "."
set parts to text items of theName
set theBase to (items 1 thru -2 of parts) as text
set AppleScript's text item delimiters to {""}
{theBase, last item of parts}
