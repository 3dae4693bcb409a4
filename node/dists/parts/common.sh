# shellcheck shell=sh
# Adapts a system that was copied from a server to life in a
# container. Runs inside the copy, with its files as the root, before its first
# start: no service runs and no bus answers, so units are masked by links.
#
# Environment, all optional:
#   HOSTNAME      full host name
#   IP_ADDRESS    addresses, separated by blanks
#   NETIF         interfaces separated by ";", each of fields separated by ",":
#                 ifname=NAME and any number of ip=ADDRESS, ADDRESS/PREFIX, ip=dhcp
#   GATEWAY       default gateways, at most one of each family, separated by blanks
#   NAMESERVER, SEARCHDOMAIN   words separated by blanks
#
# Every edit is marked: commented lines begin with "#qx#", files written here
# begin with "# qx:", and /etc/qx-changes lists them all. The original of FILE is
# FILE.qx-orig; what was taken out of a directory is in its subdirectory .qx-orig.
# A second run changes nothing. The machine id and the ssh host keys stay as they
# are: the container is the same machine to everybody who knew the server.

# The awk programs are meant to be in single quotes.
# shellcheck disable=SC2016

set -eu
LC_ALL=C
export LC_ALL
umask 022

changes=/etc/qx-changes

note() {
    grep -qxF -e "$1" "$changes" 2>/dev/null || printf '%s\n' "$1" >>"$changes"
}

# keep FILE: keeps the original of a file or symbolic link, once.
keep() {
    if [ -e "$1" ] || [ -L "$1" ]; then
        [ -e "$1.qx-orig" ] || [ -L "$1.qx-orig" ] || cp -pP "$1" "$1.qx-orig"
    fi
}

# set_aside FILE: takes a file out of a directory of which everything is read.
set_aside() {
    aside=$(dirname "$1")/.qx-orig
    mkdir -p "$aside"
    mv "$1" "$aside/"
    note "$1: moved to $aside"
}

# replace FILE MODE: standard input becomes the content. An existing plain file
# keeps its owner and mode, a symbolic link is replaced.
replace() {
    new=$1.qx-new
    rm -f "$new"
    cat >"$new"
    if [ -f "$1" ] && [ ! -L "$1" ] && cmp -s "$new" "$1"; then
        rm "$new"
        return 0
    fi
    keep "$1"
    if [ -f "$1" ] && [ ! -L "$1" ]; then
        cp -p "$1" "$1.qx-mode"
        cat "$new" >"$1.qx-mode"
        rm "$new"
        mv "$1.qx-mode" "$1"
    else
        chmod "$2" "$new"
        mv "$new" "$1"
    fi
    note "$1: rewritten"
}

# edit FILE PROGRAM: replaces an existing file by what awk makes of it.
edit() {
    [ -f "$1" ] || return 0
    awk "$2" "$1" >"$1.qx-edit"
    replace "$1" 0644 <"$1.qx-edit"
    rm -f "$1.qx-edit"
}

# has_unit UNIT: of an instance NAME@X.service the template counts.
has_unit() {
    template=$1
    case $1 in *@*.*) template=${1%%@*}@.${1##*.} ;; esac
    for dir in /etc /lib /usr/lib; do
        [ ! -f "$dir/systemd/system/$template" ] || return 0
    done
    return 1
}

# mask UNIT...: as systemctl mask does it.
mask() {
    for unit in "$@"; do
        has_unit "$unit" || continue
        link=/etc/systemd/system/$unit
        [ "$(readlink "$link" 2>/dev/null)" = /dev/null ] && continue
        mkdir -p /etc/systemd/system
        if [ -e "$link" ] || [ -L "$link" ]; then mv "$link" "$link.qx-orig"; fi
        ln -s /dev/null "$link"
        note "$link: masked"
    done
}

# disable SCRIPT...: init scripts no longer start at boot.
disable() {
    for name in "$@"; do
        for start in /etc/rc[S2345].d/S[0-9][0-9]"$name"; do
            [ -L "$start" ] || continue
            mv "$start" "${start%/*}/K01$name"
            note "$start: renamed to K01$name"
        done
    done
}

# --- File systems: the host provides them -----------------------------------

fix_file_systems() {
    # What lies on disks is mounted by the host, swap belongs to the host.
    edit /etc/fstab '
        /^[[:space:]]*(#|$)/ { print; next }
        $3 ~ /^(tmpfs|proc|sysfs|devpts|nfs4?|cifs|9p|fuse\.sshfs)$/ { print; next }
        $4 ~ /(^|,)r?bind(,|$)/ { print; next }
        { print "#qx# " $0 }'
    # A table of its own would name the server's disks for ever.
    if [ -f /etc/mtab ] && [ ! -L /etc/mtab ]; then
        mv /etc/mtab /etc/mtab.qx-orig
        ln -s ../proc/self/mounts /etc/mtab
        note "/etc/mtab: replaced by a link to the kernel's table"
    fi
    edit /etc/crypttab '/^[[:space:]]*(#|$)/ { print; next } { print "#qx# " $0 }'
    # Swap files and compressed swap, set up by services of their own.
    mask dphys-swapfile.service zramswap.service zram-config.service
    disable dphys-swapfile zramswap
    # There is no block device to check, trim or scrub.
    mask systemd-fsck-root.service systemd-fsck@.service e2scrub_reap.service \
        e2scrub_all.timer fstrim.timer
    disable checkroot.sh checkfs.sh
    # Nor are there volumes, arrays or paths to assemble and watch.
    mask lvm2-monitor.service lvm2-lvmpolld.socket lvm2-activation.service \
        lvm2-activation-early.service blk-availability.service dm-event.socket
    mask mdadm.service mdmonitor.service mdmonitor-oneshot.timer mdcheck_start.timer \
        mdcheck_continue.timer
    mask multipathd.service multipathd.socket multipath-tools.service
    mask iscsid.service iscsid.socket open-iscsi.service
    disable lvm2 mdadm mdadm-raid mdadm-waitidle multipath-tools multipath-tools-boot \
        open-iscsi
}

# --- Services that work on hardware or on the kernel ------------------------

mask_hardware_services() {
    # The host's udev names the devices; a second one would rename them.
    mask systemd-udevd.service systemd-udevd-control.socket systemd-udevd-kernel.socket \
        systemd-udev-trigger.service systemd-udev-settle.service udev.service
    disable udev udev-mtab udev-finish
    # The clock is the host's: a container may neither read the hardware clock
    # nor set the time.
    mask hwclock.service hwclock-save.service hwclock-resume.service fake-hwclock.service
    mask systemd-timesyncd.service chrony.service chronyd.service ntp.service ntpsec.service \
        openntpd.service
    disable hwclock.sh hwclockfirst.sh hwclock chrony ntp ntpsec openntpd
    # Disks, power buttons, interrupts, temperatures, memory errors and radios
    # are watched by the host.
    mask smartd.service smartmontools.service acpid.service acpid.socket acpid.path \
        irqbalance.service thermald.service lm-sensors.service mcelog.service \
        rasdaemon.service ModemManager.service bluetooth.service wpa_supplicant.service \
        udisks2.service upower.service fwupd.service
    disable smartmontools acpid irqbalance lm-sensors mcelog loadcpufreq cpufrequtils
    # A container may not load kernel modules, crash kernels or policies.
    mask systemd-modules-load.service kdump-tools.service kexec.service apparmor.service
    disable kmod module-init-tools kdump-tools kexec apparmor
    # The kernel's audit messages go to the host only; without them the journal's
    # socket unit fails at every start.
    mask systemd-journald-audit.socket auditd.service
    disable auditd
    # Guest tools of a virtual machine that the server may have been.
    mask qemu-guest-agent.service open-vm-tools.service vgauth.service
    disable qemu-guest-agent open-vm-tools
    # Screen fonts, keyboards and boot pictures need a screen.
    mask console-setup.service keyboard-setup.service setvtrgb.service \
        plymouth-start.service plymouth-quit.service plymouth-quit-wait.service
    disable console-setup keyboard-setup plymouth
    # Network interfaces get their names from the host, not from old addresses.
    if [ -f /etc/udev/rules.d/70-persistent-net.rules ]; then
        set_aside /etc/udev/rules.d/70-persistent-net.rules
    fi
}

# --- Logging in: there is a console and no other terminal -------------------

fix_terminals() {
    mask getty@tty1.service getty-static.service serial-getty@.service
    if has_unit getty@.service; then
        mkdir -p /etc/systemd/logind.conf.d
        printf '%s\n' '# qx: a container has no virtual terminals' '[Login]' 'NAutoVTs=0' \
            'ReserveVT=0' | replace /etc/systemd/logind.conf.d/50-qx.conf 0644
        for link in /etc/systemd/system/getty.target.wants/*getty@*.service; do
            [ ! -L "$link" ] || set_aside "$link"
        done
    fi
    for unit in /lib/systemd/system/console-getty.service \
        /usr/lib/systemd/system/console-getty.service; do
        [ -f "$unit" ] || continue
        wants=/etc/systemd/system/getty.target.wants
        if [ ! -L "$wants/console-getty.service" ]; then
            mkdir -p "$wants"
            ln -s "$unit" "$wants/console-getty.service"
            note "$wants/console-getty.service: enabled"
        fi
        break
    done
    edit /etc/inittab '
        /^[^#].*getty.*(tty[0-9]|ttyS[0-9])/ {
            # The program that the system logs in with serves the console, too.
            if (!line) line = $0
            print "#qx# " $0
            next
        }
        /^# qx: console$/ { seen = 1 }
        { print }
        END {
            if (seen || !line) exit
            sub(/^[^:]*/, "co", line)
            sub(/ttyS?[0-9]+/, "console", line)
            print "# qx: console"
            print line
        }'
}

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

# enable_unit UNIT: it starts with the system, as systemctl enable has it.
enable_unit() {
    link=/etc/systemd/system/multi-user.target.wants/$1
    for unit in "/lib/systemd/system/$1" "/usr/lib/systemd/system/$1"; do
        [ -f "$unit" ] || continue
        if [ ! -L "$link" ]; then
            mkdir -p "${link%/*}"
            ln -s "$unit" "$link"
            note "$link: enabled"
        fi
        return 0
    done
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

# Some shells set HOSTNAME by themselves; only the environment's counts.
full_name=$(env | sed -n 's/^HOSTNAME=//p')
all_addresses=${IP_ADDRESS:-}
NETIF=${NETIF:-}
if [ -z "$NETIF" ] && [ -n "$all_addresses" ]; then
    NETIF=ifname=eth0
    for address in $all_addresses; do NETIF="$NETIF,ip=$address"; done
elif [ -z "$all_addresses" ]; then
    all_addresses=$(printf '%s\n' "$NETIF" | tr ';' ',' | tr ',' '\n' | sed -n 's/^ip=//p' | tr '\n' ' ')
fi
