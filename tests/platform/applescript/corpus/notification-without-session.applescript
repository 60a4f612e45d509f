-- A notification that nobody sees does not stop the installation.
-- => "installed"
try
	display notification "Example is installed." with title "Installer"
end try
"installed"
