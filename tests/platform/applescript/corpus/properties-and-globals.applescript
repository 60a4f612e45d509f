-- => {3, "done"}
property tries : 0
global state
on attempt()
	set tries to tries + 1
	set state to "done"
end attempt
repeat 3 times
	attempt()
end repeat
{tries, state}
