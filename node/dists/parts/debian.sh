
# === Debian and Ubuntu ========================================================

# --- Kernels: the container runs the host's ---------------------------------

silence_boot_hooks() {
    if [ -f /etc/initramfs-tools/update-initramfs.conf ]; then
        edit /etc/initramfs-tools/update-initramfs.conf '
            /^update_initramfs=no # qx$/ { print; next }
            /^[[:space:]]*update_initramfs=/ { print "#qx# " $0; print "update_initramfs=no # qx"; next }
            { print }'
    fi
    for hook in /etc/kernel/*.d/initramfs-tools /etc/kernel/*.d/dracut \
        /etc/kernel/*.d/zz-update-grub /etc/kernel/*.d/zz-flash-kernel \
        /etc/kernel/*.d/zz-systemd-boot /etc/kernel/*.d/dkms \
        /etc/initramfs/post-update.d/*; do
        if [ -f "$hook" ] && [ -x "$hook" ]; then
            chmod a-x "$hook"
            note "$hook: no longer executable"
        fi
    done
    # New kernels and boot loaders would only fill the disk, and installing a boot
    # loader fails where there is no disk.
    if [ -d /etc/apt/preferences.d ]; then
        printf '%s\n' '# qx: the container runs the kernel of its host' \
            'Package: linux-image-* linux-headers-* grub-pc grub-efi-* shim-signed initramfs-tools' \
            'Pin: release *' 'Pin-Priority: -1' | replace /etc/apt/preferences.d/50-qx-kernel 0644
    fi
    mask grub-common.service grub-initrd-fallback.service
    disable grub-common
}

# --- Network ----------------------------------------------------------------

write_netplan() {
    printf '    %s:\n' "$1"
    case " $2 " in *' dhcp '*) printf '      dhcp4: true\n' ;; esac
    list=$(printf '%s\n' "$2" | tr ' ' '\n' | grep / || true)
    if [ -n "$list" ]; then
        printf '      addresses:\n'
        for word in $list; do printf '      - "%s"\n' "$word"; done
    fi
    [ -z "$3$4" ] || printf '      routes:\n'
    [ -z "$3" ] || printf '      - {to: "0.0.0.0/0", via: "%s"}\n' "$3"
    [ -z "$4" ] || printf '      - {to: "::/0", via: "%s"}\n' "$4"
}

# Which of its network programs the system uses.
network_program() {
    wants=/etc/systemd/system/multi-user.target.wants
    for file in /etc/netplan/*.yaml; do
        if [ -f "$file" ]; then
            echo netplan
            return
        fi
    done
    if cat /etc/network/interfaces /etc/network/interfaces.d/* 2>/dev/null |
        grep -Eq '^[[:space:]]*iface[[:space:]]+(l[^o]|[^l])'; then
        echo ifupdown
    elif [ -L $wants/systemd-networkd.service ]; then
        echo networkd
    elif [ -L $wants/NetworkManager.service ]; then
        echo network_manager
    elif [ -f /etc/network/interfaces ]; then
        # Other packages have files in that directory, too.
        echo ifupdown
    else
        echo networkd
    fi
}

fix_network() {
    [ -n "$NETIF" ] || return 0
    program=$(network_program)
    case $program in
    netplan)
        set_others_aside /etc/netplan/*.yaml
        {
            printf '# qx: written by the migration\nnetwork:\n  version: 2\n  ethernets:\n'
            each_interface write_netplan
        } | replace /etc/netplan/50-qx.yaml 0600
        wait_for_network systemd-networkd-wait-online.service
        ;;
    ifupdown)
        set_others_aside /etc/network/interfaces.d/*
        keep /etc/network/interfaces
        {
            printf '# qx: written by the migration\nauto lo\niface lo inet loopback\n'
            each_interface write_ifupdown
        } | replace /etc/network/interfaces 0644
        ;;
    networkd)
        use_networkd
        enable_unit systemd-networkd.service
        ;;
    network_manager)
        use_network_manager
        ;;
    esac
}

fix_file_systems
mask_hardware_services
fix_terminals
silence_boot_hooks
fix_names
fix_network
