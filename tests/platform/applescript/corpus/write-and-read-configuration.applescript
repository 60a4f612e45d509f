-- => {"port=8080", "host=localhost"}
set conf to "$DIR/service.conf"
do shell script "printf 'port=8080\\nhost=localhost\\n' > " & quoted form of conf
paragraphs of (do shell script "cat " & quoted form of conf)
