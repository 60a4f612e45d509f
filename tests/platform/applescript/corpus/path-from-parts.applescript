-- => "$DIR/Library/Example"
set base to "$DIR"
set parts to {"Library", "Example"}
repeat with part in parts
	set base to base & "/" & part
end repeat
base
