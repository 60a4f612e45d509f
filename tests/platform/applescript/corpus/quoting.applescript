-- => "it's a \"test\" $HOME `x` \\"
do shell script "printf %s " & quoted form of "it's a \"test\" $HOME `x` \\"
