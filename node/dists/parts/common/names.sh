
# --- Names ------------------------------------------------------------------

fix_names() {
    if [ -n "${NAMESERVER:-}" ]; then
        {
            echo '# qx: written by the migration'
            [ -z "${SEARCHDOMAIN:-}" ] || echo "search $SEARCHDOMAIN"
            for server in $NAMESERVER; do echo "nameserver $server"; done
        } | replace /etc/resolv.conf 0644
    fi
    [ -n "$full_name" ] || return 0
    short=${full_name%%.*}
    current=
    if [ -f /etc/hostname ]; then read -r current </etc/hostname || :; fi
    if [ "$current" != "$full_name" ] && [ "$current" != "$short" ]; then
        echo "$short" | replace /etc/hostname 0644
    fi
    # The name must lead to an address that the container has.
    names=$full_name
    [ "$short" = "$full_name" ] || names="$full_name $short"
    [ -f /etc/hosts ] || printf '127.0.0.1 localhost\n' | replace /etc/hosts 0644
    awk -v names="$names" -v addresses="$all_addresses" '
        BEGIN {
            count = split(names, name, " ")
            split(addresses, list, " ")
            own["127.0.1.1"] = 1
            for (i in list) { sub("/.*", "", list[i]); own[list[i]] = 1 }
            first = list[1] == "" || list[1] == "dhcp" ? "127.0.1.1" : list[1]
        }
        {
            ours = 0
            if ($0 !~ /^[[:space:]]*#/) {
                for (i = 2; i <= NF && $i !~ /^#/; i++) {
                    for (j = 1; j <= count; j++) if ($i == name[j]) ours = 1
                }
            }
            if (ours && ($1 in own || $1 ~ /^127\./ || $1 == "::1")) found = 1
            else if (ours) { print "#qx# " $0; next }
            print
        }
        END { if (!found) print first " " names " # qx" }' /etc/hosts >/etc/hosts.qx-edit
    replace /etc/hosts 0644 </etc/hosts.qx-edit
    rm -f /etc/hosts.qx-edit
}
