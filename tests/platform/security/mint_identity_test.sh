#!/usr/bin/env bash
# Development identities: what is minted verifies, each option changes what it says, and nothing
# but an identity is ever replaced. mint_identity_test.sh SOURCE-FOLDER
set -euo pipefail

mint=$1/packaging/development/mint-identity
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
failures=0

expect() { # WHAT COMMAND...
    local what=$1
    shift
    "$@" >"$folder/log" 2>&1 || { echo "FAILED: $what"; cat "$folder/log"; failures=1; }
}
refuses() { ! "$@"; }
verifies() { # IDENTITY [OPTION...]: strictly, from the leaf to the anchor of the service
    local identity=$1
    shift
    openssl verify -x509_strict "$@" -CAfile "$identity/anchors.d/vendor/development-root.pem" \
        -untrusted "$identity/signer/intermediate.pem" "$identity/signer/leaf.pem"
}
shows() { # IDENTITY CERTIFICATE PATTERN
    local text
    text=$(openssl x509 -in "$1/signer/$2.pem" -noout -text -nameopt RFC2253) && grep -E "$3" <<<"$text"
}
mode() { [[ $(stat -c %a "$2") == "$1" ]]; }

leaf_marker='1\.2\.840\.113635\.100\.6\.1\.13'
intermediate_marker='1\.2\.840\.113635\.100\.6\.2\.6'

expect 'an identity is minted' "$mint" plain
expect 'its chain verifies' verifies plain
expect 'the leaf names the team' shows plain leaf 'Subject: O=Larkwen development,OU=T4KQ8ZP3WM,CN=Developer: local build$'
expect 'the leaf is marked' shows plain leaf "$leaf_marker: *\$"
expect 'the intermediate is marked' shows plain intermediate "$intermediate_marker: *\$"
expect 'the keys are P-256' shows plain leaf 'NIST CURVE: P-256'
for key in leaf intermediate root; do
    expect "the key of the $key is private" mode 600 "plain/signer/$key.key"
done
for public in anchors.d anchors.d/vendor anchors.d/platform anchors.d/trusted; do
    expect "$public can be read, and written by its owner alone" mode 755 "plain/$public"
done
expect 'the list of revoked ones is empty' test -f plain/anchors.d/revoked -a ! -s plain/anchors.d/revoked
expect 'nothing else is left behind' test "$(ls)" = "$(printf 'log\nplain')"

before=$(sha256sum plain/signer/*)
expect 'a second run succeeds' "$mint" plain
expect 'a second run changes nothing' test "$before" = "$(sha256sum plain/signer/*)"
rm plain/signer/leaf.pem
expect 'half an identity is replaced' "$mint" plain
expect 'by a whole one' verifies plain

mkdir -p from-half/identity/signer
for begin in nothing half; do
    for i in {1..8}; do
        "$mint" from-$begin/identity && sha256sum from-$begin/identity/signer/leaf.pem >"seen.$i" &
    done
    wait
    expect "all that mint at once from $begin succeed" test "$(cat seen.* | wc -l)" = 8
    expect "and end with one identity from $begin" test "$(sort -u seen.* | wc -l)" = 1
    expect "which verifies from $begin" verifies from-$begin/identity
    expect "and leave nothing else from $begin" test "$(ls -A from-$begin)" = identity
    rm -f seen.*
done

mkdir -p precious && echo mine >precious/letter
expect 'another folder is refused' refuses "$mint" precious
expect 'and left alone' test "$(cat precious/letter)" = mine
expect 'an unknown option is refused' refuses "$mint" --marker other
expect 'a team that would change the subject is refused' refuses "$mint" --team 'A/O=B' other

expect '--team' "$mint" --team 9ABCDEFGHI team
expect '--team names the team' shows team leaf 'OU=9ABCDEFGHI,'
expect '--no-leaf-marker' "$mint" --no-leaf-marker bare-leaf
expect '--no-leaf-marker leaves it out' refuses shows bare-leaf leaf 113635
expect '--no-intermediate-marker' "$mint" bare-intermediate --no-intermediate-marker
expect '--no-intermediate-marker leaves it out' refuses shows bare-intermediate intermediate 113635
expect '--store-marker' "$mint" --store-marker store
expect '--store-marker replaces the marker' shows store leaf '1\.2\.840\.113635\.100\.6\.1\.9: *$'
expect '--critical-markers' "$mint" --critical-markers critical
expect '--critical-markers marks the leaf' shows critical leaf "$leaf_marker: critical"
expect 'who does not know the markers refuses' refuses verifies critical
expect '--expired' "$mint" --expired expired
expect '--expired is over' refuses verifies expired
expect '--expired is fine but for its term' verifies expired -no_check_time
expect '--rsa' "$mint" --rsa rsa
expect '--rsa has such keys' shows rsa leaf 'Public-Key: \(2048 bit\)'
expect '--rsa verifies' verifies rsa
exit $failures
