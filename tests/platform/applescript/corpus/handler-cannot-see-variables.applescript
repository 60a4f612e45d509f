-- error -2753: The variable target is not defined.
on report()
	target
end report
set target to "/opt"
report()
