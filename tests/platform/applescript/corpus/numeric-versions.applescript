-- => {true, false}
considering numeric strings
	set newer to "10.10.1" > "10.9.5"
end considering
{newer, "10.10.1" > "10.9.5"}
