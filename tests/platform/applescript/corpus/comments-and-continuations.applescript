-- => "a b c"
# a comment of a shell
(* a comment (* in a comment *) *)
set t to "a " & ¬
	"b " & ¬
	"c" -- at the end
t
