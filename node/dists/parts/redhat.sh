
# === Red Hat family, Fedora, Mageia ===========================================

# Kernel updates: none, and nothing that runs after one.
silence_boot_hooks() {
    for file in /etc/dnf/dnf.conf /etc/yum.conf; do
        if [ -f "$file" ] && [ ! -L "$file" ]; then
            grep -q '^# qx: no kernels$' "$file" || edit "$file" '
                { print }
                /^\[main\]/ {
                    print "# qx: no kernels"
                    print "exclude=kernel kernel-core kernel-modules* kernel-uek*"
                }'
        fi
    done
    # Mageia's own tool has a list of what it leaves alone.
    if [ -d /etc/urpmi ]; then
        {
            [ ! -f /etc/urpmi/skip.list ] || grep -vxF -e '# qx: no kernels' -e '/^kernel-(desktop|server|linus)/' \
                /etc/urpmi/skip.list || :
            printf '%s\n' '# qx: no kernels' '/^kernel-(desktop|server|linus)/'
        } | replace /etc/urpmi/skip.list 0644
    fi
    # A link hides the hook of the same name that a package brings.
    if [ -d /etc/kernel/install.d ]; then
        for hook in 20-grub 50-dracut 51-dracut-rescue 90-loaderentry 95-kernel-hooks; do
            [ ! -L "/etc/kernel/install.d/$hook.install" ] || continue
            [ ! -e "/etc/kernel/install.d/$hook.install" ] ||
                set_aside "/etc/kernel/install.d/$hook.install"
            ln -s /dev/null "/etc/kernel/install.d/$hook.install"
            note "/etc/kernel/install.d/$hook.install: masked"
        done
    fi
    edit /etc/sysconfig/kernel '
        /^UPDATEDEFAULT=yes/ { print "#qx# " $0; print "UPDATEDEFAULT=no # qx"; next }
        { print }'
    mask grub-boot-indeterminate.service grub2-systemd-integration.service \
        dracut-shutdown.service kdump.service
    disable kdump
}

# What this family starts for hardware beyond the services of all.
mask_family_services() {
    # Microcode, RAID of the firmware, entropy of the machine, tuning of the kernel.
    mask microcode.service dmraid-activation.service rngd.service tuned.service \
        ksm.service ksmtuned.service mdmonitor.service selinux-autorelabel-mark.service \
        import-state.service
    disable microcode_ctl cpuspeed haldaemon lvm2-monitor blk-availability mdmonitor netfs \
        ntpd chronyd auditd smartd multipathd iscsi iscsid
}

# The policy of the server names files by labels that only its own kernel enforced.
relax_policy() {
    edit /etc/selinux/config '
        /^SELINUX=enforcing/ { print "#qx# " $0; print "SELINUX=permissive"; next }
        { print }'
    if [ -e /.autorelabel ]; then
        mv /.autorelabel /.autorelabel.qx-orig
        note "/.autorelabel: moved to /.autorelabel.qx-orig"
    fi
}

# Upstart of release 6 knows terminals as jobs.
fix_upstart_terminals() {
    for job in start-ttys serial; do
        [ -f "/etc/init/$job.conf" ] || continue
        printf '%s\n' '# qx: a container has no virtual terminals' manual |
            replace "/etc/init/$job.override" 0644
    done
    if [ -f /etc/init/start-ttys.conf ]; then
        printf '%s\n' '# qx: console' 'start on stopped rc RUNLEVEL=[2345]' \
            'stop on runlevel [!2345]' respawn 'exec /sbin/mingetty console' |
            replace /etc/init/qx-console.conf 0644
    fi
}

write_ifcfg() {
    printf '# qx: written by the migration\nDEVICE=%s\nONBOOT=yes\nTYPE=Ethernet\n' "$1"
    number=
    six=
    case " $2 " in *' dhcp '*) printf 'BOOTPROTO=dhcp\n' ;; *) printf 'BOOTPROTO=none\n' ;; esac
    for word in $2; do
        case $word in
        dhcp) ;;
        *:*) six="$six${six:+ }$word" ;;
        *)
            printf 'IPADDR%s=%s\nPREFIX%s=%s\nNETMASK%s=%s\n' "$number" "${word%/*}" "$number" \
                "${word#*/}" "$number" "$(dotted_mask "${word#*/}")"
            number=$((${number:-0} + 1))
            ;;
        esac
    done
    [ -z "$3" ] || printf 'GATEWAY=%s\n' "$3"
    [ -n "$six" ] || return 0
    printf 'IPV6INIT=yes\nIPV6_AUTOCONF=no\nIPV6ADDR=%s\n' "${six%% *}"
    case $six in *' '*) printf 'IPV6ADDR_SECONDARIES="%s"\n' "${six#* }" ;; esac
    [ -z "$4" ] || printf 'IPV6_DEFAULTGW=%s\n' "$4"
}
ifcfg_file() {
    write_ifcfg "$@" | replace "/etc/sysconfig/network-scripts/ifcfg-$1" 0644
}

# Release 9 keeps the directory of the old files, but nothing in it.
uses_ifcfg() {
    for file in /etc/sysconfig/network-scripts/ifcfg-* \
        /etc/sysconfig/network-scripts/.qx-orig/ifcfg-*; do
        case $file in
        *'*' | */ifcfg-lo) ;;
        *) return 0 ;;
        esac
    done
    [ -d /etc/sysconfig/network-scripts ] && [ ! -d /etc/NetworkManager ]
}

fix_network() {
    [ -n "$NETIF" ] || return 0
    if [ -L /etc/systemd/system/multi-user.target.wants/systemd-networkd.service ]; then
        use_networkd
    elif uses_ifcfg; then
        for file in /etc/sysconfig/network-scripts/ifcfg-* \
            /etc/sysconfig/network-scripts/route*-*; do
            [ -f "$file" ] || continue
            [ "${file##*/}" != ifcfg-lo ] || continue
            grep -q '^# qx: written by the migration$' "$file" || set_aside "$file"
        done
        # A gateway for all interfaces would win over what is written now.
        edit /etc/sysconfig/network '
            /^GATEWAY(DEV)?=/ { print "#qx# " $0; next }
            { print }'
        each_interface ifcfg_file
    else
        use_network_manager
        enable_unit NetworkManager.service
    fi
}

# Up to release 6 the name is set there.
fix_old_name() {
    [ -n "$full_name" ] || return 0
    [ -f /etc/sysconfig/network ] || return 0
    awk -v name="$full_name" '
        /^HOSTNAME=/ && $0 != "HOSTNAME=" name { print "#qx# " $0; print "HOSTNAME=" name; next }
        { print }' /etc/sysconfig/network >/etc/sysconfig/network.qx-edit
    replace /etc/sysconfig/network 0644 </etc/sysconfig/network.qx-edit
    rm -f /etc/sysconfig/network.qx-edit
}

fix_file_systems
mask_hardware_services
mask_family_services
fix_terminals
fix_upstart_terminals
silence_boot_hooks
relax_policy
fix_names
fix_network
fix_old_name
