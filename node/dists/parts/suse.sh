
# === SUSE Linux Enterprise and openSUSE =======================================

silence_boot_hooks() {
    edit /etc/sysconfig/bootloader '
        /^LOADER_TYPE=/ && $0 != "LOADER_TYPE=\"none\"" {
            print "#qx# " $0
            print "LOADER_TYPE=\"none\""
            next
        }
        { print }'
    if [ -d /etc/zypp ] && ! grep -qs '^# qx: no kernels$' /etc/zypp/locks; then
        {
            [ ! -f /etc/zypp/locks ] || cat /etc/zypp/locks
            printf '%s\n' '' '# qx: no kernels' 'type: package' 'match_type: glob' \
                'case_sensitive: on' 'solvable_name: kernel-default*'
        } | replace /etc/zypp/locks 0644
    fi
    mask purge-kernels.service kdump.service kdump-early.service grub2-once.service
    disable boot.kdump kdump
}

mask_family_services() {
    # Checks and repairs of disks, entropy and tuning of the machine.
    mask btrfs-balance.timer btrfs-scrub.timer btrfs-trim.timer btrfs-defrag.timer \
        btrfsmaintenance-refresh.service btrfsmaintenance-refresh.path snapper-boot.timer \
        haveged.service tuned.service mcelog.service klog.service
    disable haveged boot.clock boot.device-mapper boot.dmraid boot.lvm boot.md boot.multipath \
        boot.rootfsck boot.udev boot.swap boot.loadmodules mcelog
    # Up to release 11 the links lie below init.d.
    for name in boot.clock boot.device-mapper boot.dmraid boot.lvm boot.md boot.multipath \
        boot.rootfsck boot.swap boot.udev boot.loadmodules; do
        for start in /etc/init.d/boot.d/S[0-9][0-9]"$name"; do
            [ ! -L "$start" ] || set_aside "$start"
        done
    done
}

write_ifcfg() {
    printf "# qx: written by the migration\nSTARTMODE='auto'\n"
    case " $2 " in *' dhcp '*) printf "BOOTPROTO='dhcp'\n" ;; *) printf "BOOTPROTO='static'\n" ;; esac
    number=
    for word in $2; do
        [ "$word" != dhcp ] || continue
        printf "IPADDR%s='%s'\n" "${number:+_$number}" "$word"
        number=$((${number:-0} + 1))
    done
    for gateway in $3 $4; do
        printf 'default %s - %s\n' "$gateway" "$1" >>/etc/sysconfig/network/routes.qx-list
    done
}
ifcfg_file() {
    write_ifcfg "$@" | replace "/etc/sysconfig/network/ifcfg-$1" 0644
}

fix_network() {
    [ -n "$NETIF" ] || return 0
    if [ -L /etc/systemd/system/multi-user.target.wants/NetworkManager.service ]; then
        use_network_manager
        return 0
    fi
    mkdir -p /etc/sysconfig/network
    for file in /etc/sysconfig/network/ifcfg-* /etc/sysconfig/network/ifroute-* \
        /etc/sysconfig/network/routes; do
        [ -f "$file" ] || continue
        case ${file##*/} in ifcfg-lo | ifcfg-*.* | ifcfg-template) continue ;; esac
        grep -q '^# qx: written by the migration$' "$file" || set_aside "$file"
    done
    printf '# qx: written by the migration\n' >/etc/sysconfig/network/routes.qx-list
    each_interface ifcfg_file
    replace /etc/sysconfig/network/routes 0644 </etc/sysconfig/network/routes.qx-list
    rm -f /etc/sysconfig/network/routes.qx-list
    enable_unit wicked.service
}

# This program writes resolv.conf anew at every start.
fix_netconfig() {
    [ -n "${NAMESERVER:-}" ] || return 0
    [ -f /etc/sysconfig/network/config ] || return 0
    awk -v servers="$NAMESERVER" -v domains="${SEARCHDOMAIN:-}" '
        function set(name, value,   line) {
            line = name "=\"" value "\""
            if ($0 != line) print "#qx# " $0
            print line
        }
        /^NETCONFIG_DNS_STATIC_SERVERS=/ { set("NETCONFIG_DNS_STATIC_SERVERS", servers); next }
        /^NETCONFIG_DNS_STATIC_SEARCHLIST=/ { set("NETCONFIG_DNS_STATIC_SEARCHLIST", domains); next }
        { print }' /etc/sysconfig/network/config >/etc/sysconfig/network/config.qx-edit
    replace /etc/sysconfig/network/config 0644 </etc/sysconfig/network/config.qx-edit
    rm -f /etc/sysconfig/network/config.qx-edit
}

# Up to release 11 the name is there; later it is a link to the usual file.
fix_old_name() {
    [ -n "$full_name" ] || return 0
    [ -f /etc/HOSTNAME ] || return 0
    [ ! -L /etc/HOSTNAME ] || return 0
    echo "$full_name" | replace /etc/HOSTNAME 0644
}

fix_file_systems
mask_hardware_services
mask_family_services
fix_terminals
silence_boot_hooks
fix_names
fix_network
fix_netconfig
fix_old_name
