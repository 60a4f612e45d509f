-- Removes what an older version has left; what is missing does not matter.
-- => {"a.conf"}
do shell script "mkdir -p $DIR/old && touch $DIR/old/a.conf"
set removed to {}
repeat with each in {"a.conf", "b.conf"}
	try
		do shell script "rm $DIR/old/" & quoted form of each
		set end of removed to contents of each
	end try
end repeat
removed
