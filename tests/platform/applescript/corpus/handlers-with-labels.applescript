-- => "install Example into /opt quietly"
on install of product into folderPath given quietly:q
	set t to "install " & product & " into " & folderPath
	if q then set t to t & " quietly"
	t
end install
install of "Example" into "/opt" with quietly
