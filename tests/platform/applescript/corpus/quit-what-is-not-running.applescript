-- Quitting an application that does not run is no failure.
-- error -1728: Can’t get application "No Such Editor".
tell application "No Such Editor" to quit
