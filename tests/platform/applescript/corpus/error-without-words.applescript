-- A command that fails without a word.
-- error 1: The command exited with a non-zero status.
do shell script "false"
