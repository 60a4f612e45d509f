-- => true
set free to (do shell script "df -Pk $DIR | awk 'NR==2 {print $4}'") as integer
free > 100
