-- Words that Finder does not know do not compile.
-- error -2740: A class name can’t go after this identifier.
tell application "Finder" to frobnicate window 1
