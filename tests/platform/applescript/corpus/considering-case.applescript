-- => {true, false}
considering case
	set strict to "Example" is "example"
end considering
{"Example" is "example", strict}
