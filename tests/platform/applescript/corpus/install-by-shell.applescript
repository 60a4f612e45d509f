-- Copies a tool into place as root and answers with the version that it prints.
-- => "tool 2.1"
set source to quoted form of "$DIR/tool 2"
do shell script "printf '#!/bin/sh\\necho tool 2.1\\n' > " & source with administrator privileges
do shell script "install -d $DIR/bin && install -m 755 " & source & " $DIR/bin/tool" with administrator privileges
do shell script "$DIR/bin/tool"
