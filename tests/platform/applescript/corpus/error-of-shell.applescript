-- A failed command's status and its standard error become the error.
-- error 3: disk is full
do shell script "echo disk is full >&2; exit 3"
