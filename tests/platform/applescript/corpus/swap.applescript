-- => {2, 1}
set {a, b} to {1, 2}
set {a, b} to {b, a}
{a, b}
