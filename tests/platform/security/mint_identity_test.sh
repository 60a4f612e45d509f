#!/usr/bin/env bash
# Tests development identities: a minted one verifies, each option changes the identity, and only an
# identity is ever replaced. mint_identity_test.sh SOURCE-FOLDER
set -euo pipefail

mint=$1/packaging/development/mint-identity
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
failures=0

expect() { # NAME COMMAND...
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

leaf_marker='1\.2\.840\.113635\.100\.6\.1\.13'
intermediate_marker='1\.2\.840\.113635\.100\.6\.2\.6'

expect 'an identity is minted' "$mint" plain
expect 'the leaf names the team' shows plain leaf 'Subject: O=Larkwen development,OU=T4KQ8ZP3WM,CN=Developer: local build$'
expect 'the leaf is marked' shows plain leaf "$leaf_marker: *\$"
expect 'the intermediate is marked' shows plain intermediate "$intermediate_marker: *\$"
expect 'the keys are private' test "$(stat -c %a plain/signer/*.key | sort -u)" = 600
expect 'only the owner can write anchors' test "$(stat -c %a plain/anchors.d{,/*/} | sort -u)" = 755
before=$(sha256sum plain/signer/*)
expect 'a second run succeeds' "$mint" plain
expect 'a second run changes nothing' test "$before" = "$(sha256sum plain/signer/*)"

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
expect 'a team that would change the subject is refused' refuses "$mint" --team 'A/O=B' other

mints() { # IDENTITY CERTIFICATE PATTERN OPTION...
    local identity=$1 certificate=$2 pattern=$3
    shift 3
    "$mint" "$@" "$identity" && shows "$identity" "$certificate" "$pattern"
}
expect '--team names the team' mints team leaf 'OU=9ABCDEFGHI,' --team 9ABCDEFGHI
expect '--no-leaf-marker leaves it out' refuses mints bare-leaf leaf 113635 --no-leaf-marker
expect 'but mints' verifies bare-leaf
expect '--no-intermediate-marker leaves it out' refuses mints bare intermediate 113635 --no-intermediate-marker
expect 'but mints' verifies bare
expect '--store-marker replaces the marker' mints store leaf '1\.2\.840\.113635\.100\.6\.1\.9: *$' --store-marker
expect '--critical-markers marks the leaf' mints critical leaf "$leaf_marker: critical" --critical-markers
expect '--rsa has such keys' mints rsa leaf 'Public-Key: \(2048 bit\)' --rsa
expect '--expired' "$mint" --expired expired
expect '--expired is over' refuses verifies expired
expect '--expired is fine but for its term' verifies expired -no_check_time
exit $failures
