-- => "ran"
on run
	prepare()
end run
on prepare()
	"ran"
end prepare
