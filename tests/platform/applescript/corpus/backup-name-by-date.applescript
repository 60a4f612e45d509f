-- => "backup-2026-03-07.tar"
on two(n)
	text -2 thru -1 of ("0" & n)
end two
set d to date "2026-03-07 10:20:30"
"backup-" & (year of d) & "-" & two(month of d as integer) & "-" & two(day of d) & ".tar"
