
# --- Network ----------------------------------------------------------------

# The addresses of one interface of NETIF.
addresses_of() {
    printf '%s\n' "$1" | tr ',' '\n' | sed -n 's/^ip=//p'
}
name_of() {
    printf '%s\n' "$1" | tr ',' '\n' | sed -n 's/^ifname=//p'
}

# What the server's own network files say, one after the other.
original_network_files() {
    for file in /etc/network/interfaces.qx-orig /etc/network/interfaces.d/.qx-orig/* \
        /etc/netplan/.qx-orig/* /etc/systemd/network/.qx-orig/* \
        /etc/NetworkManager/system-connections/.qx-orig/* \
        /etc/sysconfig/network-scripts/.qx-orig/* /etc/sysconfig/network/.qx-orig/* \
        /etc/sysconfig/network.qx-orig; do
        if [ -f "$file" ]; then
            echo iface
            cat "$file"
        fi
    done
    return 0
}

# with_prefix ADDRESS: ADDRESS/PREFIX, where the prefix is what was given, or
# what the server's files say of this address, or the most usual one.
with_prefix() {
    case $1 in
    */*)
        echo "$1"
        return
        ;;
    esac
    original_network_files | awk -v address="$1" '
        function bits(mask,   part, n, i, total) {
            if (mask !~ /\./) return mask
            n = split(mask, part, ".")
            for (i = 1; i <= n; i++) {
                while (part[i] > 0) { total += part[i] % 2; part[i] = int(part[i] / 2) }
            }
            return total
        }
        function end_of_stanza() {
            if (!prefix && stanza == address && mask) prefix = bits(mask)
            stanza = mask = ""
        }
        $1 == "iface" { end_of_stanza() }
        $1 == "address" { stanza = $2 }
        $1 == "netmask" { mask = $2 }
        # Words of shell variables.
        /^(IPADDR|NETMASK|PREFIX|PREFIXLEN)[0-9_]*=/ {
            value = $0
            sub(/^[^=]*=/, "", value)
            gsub(/["\047 ]/, "", value)
            if (/^IPADDR/) stanza = value
            else mask = value
        }
        !prefix && (at = index($0, address "/")) {
            if (at == 1 || substr($0, at - 1, 1) !~ /[0-9a-fA-F:.]/) {
                prefix = substr($0, at + length(address) + 1)
                sub(/[^0-9].*/, "", prefix)
            }
        }
        END {
            end_of_stanza()
            if (!prefix) prefix = address ~ /:/ ? 64 : 24
            print address "/" prefix
        }'
}

# gateway FAMILY ADDRESS...: the configured default gateway, or the server's when
# one of these addresses was the server's. FAMILY is a pattern that the gateway
# must match.
gateway() {
    family=$1
    shift
    configured=$(printf '%s\n' "${GATEWAY:-}" | tr ' ' '\n' | grep -E -e "$family" | sed 1q)
    if [ -n "$configured" ]; then
        echo "$configured"
        return 0
    fi
    for address in "$@"; do
        [ "$address" != dhcp ] || continue
        original_network_files | grep -qwF -e "${address%/*}" || continue
        original_network_files | awk -v family="$family" '
            { gsub(/["\047{},]/, " "); found = "" }
            $1 == "gateway" || $1 == "gateway4:" || $1 == "gateway6:" { found = $2 }
            { for (i = 1; i < NF; i++) if ($i == "via:") found = $(i + 1) }
            /^[[:space:]]*[Gg]ateway[0-9]*=/ { found = $0; sub(/^[^=]*=[[:space:]]*/, "", found) }
            /^(GATEWAY[0-9]*|IPV6_DEFAULTGW)=/ { found = $0; sub(/^[^=]*=[[:space:]]*/, "", found) }
            $1 == "default" { found = $2 }
            /^address[0-9]*=[^ ]+ +[^ ]/ { found = $2 }
            found ~ family { print found; exit }'
        return 0
    done
}

# Takes the files that match out of their directory, except ours.
set_others_aside() {
    for other in "$@"; do
        [ -f "$other" ] || continue
        case ${other##*/} in
        50-qx* | qx-*) ;;
        *) set_aside "$other" ;;
        esac
    done
}

dotted_mask() {
    awk -v bits="$1" 'BEGIN {
        for (i = 0; i < 4; i++) {
            n = bits > 8 ? 8 : bits; bits -= n
            printf "%s%d", i ? "." : "", 256 - 2 ^ (8 - n)
        }
        print ""
    }'
}

# Each write_ function writes interface $1 with the words of $2, which are
# ADDRESS/PREFIX or "dhcp"; $3 and $4 are gateways or empty.
write_ifupdown() {
    printf '\nauto %s\n' "$1"
    for word in $2; do
        address=${word%/*}
        case $word in
        dhcp) printf 'iface %s inet dhcp\n' "$1" ;;
        *:*)
            printf 'iface %s inet6 static\n    address %s\n    netmask %s\n' "$1" "$address" "${word#*/}"
            [ -z "$4" ] || printf '    gateway %s\n' "$4"
            set -- "$1" "$2" "$3" ''
            ;;
        *)
            printf 'iface %s inet static\n    address %s\n    netmask %s\n' "$1" "$address" \
                "$(dotted_mask "${word#*/}")"
            [ -z "$3" ] || printf '    gateway %s\n' "$3"
            set -- "$1" "$2" '' "$4"
            ;;
        esac
    done
}

write_networkd() {
    printf '# qx: written by the migration\n[Match]\nName=%s\n\n[Network]\n' "$1"
    for word in $2; do
        case $word in
        dhcp) printf 'DHCP=ipv4\n' ;;
        *) printf 'Address=%s\n' "$word" ;;
        esac
    done
    for gateway in $3 $4; do printf 'Gateway=%s\n' "$gateway"; done
    # Where a router has nothing to add, the network is not held up until it is
    # certain that there is none.
    case " $2 " in
    *' dhcp '*) ;;
    *:*) [ -z "$4" ] || printf 'IPv6AcceptRA=no\n' ;;
    *) printf 'IPv6AcceptRA=no\n' ;;
    esac
}

write_network_manager() {
    printf '# qx: written by the migration\n[connection]\nid=qx-%s\ntype=ethernet\ninterface-name=%s\n' \
        "$1" "$1"
    for family in 4 6; do
        list=$(printf '%s\n' "$2" | tr ' ' '\n' | grep / || true)
        if [ $family = 4 ]; then
            list=$(printf '%s\n' "$list" | grep -v : || true)
            gateway=$3
            method=disabled
            case " $2 " in *' dhcp '*) method=auto ;; esac
        else
            list=$(printf '%s\n' "$list" | grep : || true)
            gateway=$4
            method=ignore
        fi
        [ -z "$list" ] || method=manual
        printf '\n[ipv%s]\nmethod=%s\n' $family $method
        number=0
        for word in $list; do
            number=$((number + 1))
            printf 'address%s=%s\n' $number "$word"
        done
        [ -z "$list" ] || [ -z "$gateway" ] || printf 'gateway=%s\n' "$gateway"
    done
}

# each_interface WRITER: calls it for each interface of NETIF.
each_interface() {
    done4=
    done6=
    printf '%s\n' "$NETIF" | tr ';' '\n' | while read -r interface; do
        name=$(name_of "$interface")
        [ -n "$name" ] || continue
        words=
        for address in $(addresses_of "$interface"); do
            [ "$address" = dhcp ] || address=$(with_prefix "$address")
            words="$words${words:+ }$address"
        done
        # The first interface that has addresses of a family gets its gateway.
        gateway4=
        gateway6=
        case $words in
        *.*/*)
            # shellcheck disable=SC2086
            [ -n "$done4" ] || gateway4=$(gateway '^[0-9.]+$' $words)
            done4=$done4$gateway4
            ;;
        esac
        case $words in
        *:*)
            # shellcheck disable=SC2086
            [ -n "$done6" ] || gateway6=$(gateway ':' $words)
            done6=$done6$gateway6
            ;;
        esac
        "$1" "$name" "$words" "$gateway4" "$gateway6"
    done
}

networkd_file() {
    write_networkd "$@" | replace "/etc/systemd/network/50-qx-$1.network" 0644
}
network_manager_file() {
    write_network_manager "$@" |
        replace "/etc/NetworkManager/system-connections/qx-$1.nmconnection" 0600
}

# The container's interfaces by what the system has to set them up.
use_networkd() {
    mkdir -p /etc/systemd/network
    set_others_aside /etc/systemd/network/*
    each_interface networkd_file
    wait_for_network systemd-networkd-wait-online.service
}
use_network_manager() {
    mkdir -p /etc/NetworkManager/system-connections
    set_others_aside /etc/NetworkManager/system-connections/*
    each_interface network_manager_file
    wait_for_network NetworkManager-wait-online.service
}

# wait_for_network UNIT: what starts when the network is there finds the addresses,
# too. By itself UNIT holds up those services only that ask for it by name, and a name
# server, for instance, looks once for the addresses it is to answer on.
wait_for_network() {
    has_unit "$1" || return 0
    enable_unit "$1"
    mkdir -p "/etc/systemd/system/$1.d"
    printf '%s\n' '# qx: services find the addresses when they start' '[Unit]' \
        'Before=network.target' '[Service]' 'TimeoutStartSec=60' |
        replace "/etc/systemd/system/$1.d/50-qx.conf" 0644
}
