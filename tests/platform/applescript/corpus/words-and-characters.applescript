-- => {"Example", 3, "elpmaxE", "E"}
set t to "Example Tool Kit"
set w to first word of t
{w, count of words of t, (reverse of characters of w) as text, character 1 of w}
