-- The service has no screen: a dialog fails, and the script goes on as if it had been accepted.
-- => "OK"
try
	set answer to button returned of (display dialog "Install now?" buttons {"Cancel", "OK"} default button "OK" with icon caution giving up after 30)
on error number n
	if n is -128 then error number -128
	set answer to "OK"
end try
answer
