# A file that bash scripts source to issue development certificates: `mint-identity`, and tests that
# want a chain of their own.

# issue NAME ISSUER ALGORITHM SUBJECT FROM TO EXTENSION...
#
# Makes NAME.key (mode 0600) and NAME.pem in the current folder. ISSUER is the name of a certificate
# made here before, or NAME itself for a root. ALGORITHM is `ec` (P-256) or `rsa` (2048 bits), FROM
# and TO are what `date -d` understands, an EXTENSION is a line of OpenSSL's configuration files.
# OpenSSL's output is shown when it fails.
issue() {
    local name=$1 issuer=$2 algorithm=$3 subject=$4 from=$5 to=$6
    shift 6
    local key=(-newkey ec -pkeyopt ec_paramgen_curve:P-256) by=(-cert "$issuer.pem")
    [[ $algorithm == ec ]] || key=(-newkey rsa:2048)
    [[ $issuer != "$name" ]] || by=(-selfsign)
    local desk
    desk=$(mktemp -d) || return
    : >"$desk/index"
    {
        printf '%s\n' '[req]' 'distinguished_name=subject' '[subject]' \
            '[authority]' "database=$desk/index" "new_certs_dir=$desk" 'rand_serial=yes' \
            'unique_subject=no' 'default_md=sha256' 'preserve=yes' 'policy=policy' \
            'x509_extensions=extensions' \
            '[policy]' 'commonName=optional' 'organizationalUnitName=optional' \
            'organizationName=optional'
        # The key identifiers are what strict verification of a chain asks for.
        printf '%s\n' '[extensions]' "$@" 'subjectKeyIdentifier=hash'
        [[ $issuer == "$name" ]] || printf '%s\n' 'authorityKeyIdentifier=keyid:always'
    } >"$desk/config"
    local status=0
    {
        (umask 077 && openssl req -config "$desk/config" -new "${key[@]}" -nodes \
            -keyout "$name.key" -subj "$subject" -out "$desk/request") &&
            openssl ca -config "$desk/config" -name authority -batch -notext "${by[@]}" \
                -keyfile "$issuer.key" -in "$desk/request" -out "$name.pem" \
                -startdate "$(date -u -d "$from" +%y%m%d%H%M%SZ)" \
                -enddate "$(date -u -d "$to" +%y%m%d%H%M%SZ)"
    } >"$desk/log" 2>&1 || { status=1; cat "$desk/log" >&2; }
    rm -rf "$desk"
    return $status
}
