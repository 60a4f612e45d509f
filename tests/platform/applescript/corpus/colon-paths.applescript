-- => "/Library/Example/"
POSIX path of ((path to startup disk as text) & "Library:Example:")
