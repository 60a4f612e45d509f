-- => {42, "3.5", 3, {1}, true, "12"}
{"42" as integer, 3.5 as text, 3 as number, 1 as list, "true" as boolean, 12 as string}
