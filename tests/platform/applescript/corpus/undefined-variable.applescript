-- error -2753: The variable installFolder is not defined.
set target to installFolder & "/bin"
