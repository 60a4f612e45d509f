-- => {4, "Größe 😀", true}
set t to "Größe 😀"
{count of characters of "Maß😀", t, t contains "😀"}
