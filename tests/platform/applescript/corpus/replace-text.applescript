-- => "C:/Program Files/Example"
on replaceText(theText, old, new)
	set saved to text item delimiters
	set text item delimiters to old
	set pieces to text items of theText
	set text item delimiters to new
	set theText to pieces as text
	set text item delimiters to saved
	theText
end replaceText
replaceText("C:\\Program Files\\Example", "\\", "/")
