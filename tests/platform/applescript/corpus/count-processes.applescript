-- => true
tell application "System Events" to set names to name of every process
(count of names) > 0
