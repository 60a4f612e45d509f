-- => true
set arch to do shell script "uname -m"
if arch is "x86_64" then
	set package to "example-amd64.deb"
else if arch is in {"aarch64", "arm64"} then
	set package to "example-arm64.deb"
else
	set package to "example-" & arch & ".deb"
end if
package starts with "example-" and package ends with ".deb"
