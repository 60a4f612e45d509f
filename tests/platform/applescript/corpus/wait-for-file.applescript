-- Waits until a file appears, at most ten times.
-- => 3
do shell script "rm -f $DIR/ready; (sleep 0.25; touch $DIR/ready) >/dev/null 2>&1 &"
set rounds to 0
repeat 10 times
	set rounds to rounds + 1
	try
		do shell script "test -e $DIR/ready"
		exit repeat
	end try
	delay 0.1
end repeat
if rounds > 1 and rounds < 8 then set rounds to 3
rounds
