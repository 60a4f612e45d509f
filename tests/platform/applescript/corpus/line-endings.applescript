-- Output comes with returns, or as it is when that is asked for.
-- => {true, true}
set a to do shell script "printf 'x\\ny\\n'"
set b to do shell script "printf 'x\\ny\\n'" without altering line endings
{a = "x" & return & "y", b = "x" & linefeed & "y" & linefeed}
