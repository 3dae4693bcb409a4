
# === Alpine ===================================================================

# no_service NAME...: OpenRC no longer starts them.
no_service() {
    for name in "$@"; do
        for link in /etc/runlevels/*/"$name"; do
            [ -L "$link" ] || continue
            level=${link%/*}
            mkdir -p "/etc/runlevels.qx-orig/${level##*/}"
            mv "$link" "/etc/runlevels.qx-orig/${level##*/}/"
            note "$link: moved to /etc/runlevels.qx-orig"
        done
    done
}

fix_services() {
    # Devices, modules and the clock are the host's; so are disks and swap.
    no_service hwclock swclock modules hwdrivers mdev mdadm mdadm-raid lvm dmcrypt \
        udev udev-trigger udev-settle udev-postmount fsck swap acpid smartd irqbalance \
        chronyd ntpd openntpd loadkmap watchdog microcode_ctl auditd multipath multipathd
    if [ -f /etc/rc.conf ] && ! grep -q '^rc_sys="lxc"' /etc/rc.conf; then
        edit /etc/rc.conf '
            /^rc_sys=/ { print "#qx# " $0; next }
            { print }
            END { print "# qx: what cannot run in a container is left out"; print "rc_sys=\"lxc\"" }'
    fi
}

# Terminals of an inittab whose first field is the terminal.
fix_busybox_terminals() {
    edit /etc/inittab '
        /^[^#].*getty.*(tty[0-9]|ttyS[0-9])/ { print "#qx# " $0; next }
        /^console::respawn:/ { seen = 1 }
        { print }
        END {
            if (!seen) {
                print "# qx: console"
                print "console::respawn:/sbin/getty 38400 console"
            }
        }'
}

silence_boot_hooks() {
    edit /etc/mkinitfs/mkinitfs.conf '
        /^disable_trigger=/ { seen = 1 }
        { print }
        END { if (!seen) print "disable_trigger=yes # qx" }'
}

fix_network() {
    [ -n "$NETIF" ] || return 0
    mkdir -p /etc/network
    keep /etc/network/interfaces
    {
        printf '# qx: written by the migration\nauto lo\niface lo inet loopback\n'
        each_interface write_ifupdown
    } | replace /etc/network/interfaces 0644
    if [ -f /etc/init.d/networking ] && [ ! -L /etc/runlevels/boot/networking ]; then
        mkdir -p /etc/runlevels/boot
        ln -s /etc/init.d/networking /etc/runlevels/boot/networking
        note "/etc/runlevels/boot/networking: enabled"
    fi
}

fix_file_systems
fix_services
fix_busybox_terminals
silence_boot_hooks
fix_names
fix_network
