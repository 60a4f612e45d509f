-- => {true, false, true, 2}
set l to {"deb", "rpm"}
{l contains "DEB", "zip" is in l, {1, 2} = {1, 2}, length of l}
