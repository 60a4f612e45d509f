-- => "absent"
try
	tell application id "org.example.no-such-editor" to quit
on error number -1728
	"absent"
end try
