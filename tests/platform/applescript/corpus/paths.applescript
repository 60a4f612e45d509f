-- => {"/Applications/", "$DIR/a b.txt", "'$DIR/a b.txt'"}
set f to POSIX file "$DIR/a b.txt"
{POSIX path of (path to applications folder), POSIX path of f, quoted form of POSIX path of f}
