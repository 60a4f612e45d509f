-- => {"b.pkg", "c.pkg"}
set found to {}
repeat with f in {"a.txt", "b.pkg", "c.pkg"}
	if f ends with ".pkg" then set end of found to f as text
end repeat
found
