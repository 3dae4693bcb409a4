
# === Arch Linux ===============================================================

silence_boot_hooks() {
    if [ -f /etc/pacman.conf ] && ! grep -q '^# qx: no kernels$' /etc/pacman.conf; then
        edit /etc/pacman.conf '
            { print }
            /^\[options\]/ {
                print "# qx: no kernels"
                print "IgnorePkg = linux linux-lts linux-zen linux-hardened"
            }'
    fi
    for hook in 60-mkinitcpio-remove 90-mkinitcpio-install; do
        [ -e "/usr/share/libalpm/hooks/$hook.hook" ] || continue
        [ ! -L "/etc/pacman.d/hooks/$hook.hook" ] || continue
        mkdir -p /etc/pacman.d/hooks
        ln -s /dev/null "/etc/pacman.d/hooks/$hook.hook"
        note "/etc/pacman.d/hooks/$hook.hook: masked"
    done
}

fix_network() {
    [ -n "$NETIF" ] || return 0
    if [ -L /etc/systemd/system/multi-user.target.wants/NetworkManager.service ]; then
        use_network_manager
        return 0
    fi
    # Programs that would give the interfaces other addresses.
    mask dhcpcd.service iwd.service
    for link in /etc/systemd/system/multi-user.target.wants/netctl@*.service \
        /etc/systemd/system/multi-user.target.wants/dhcpcd@*.service; do
        [ ! -L "$link" ] || set_aside "$link"
    done
    use_networkd
    enable_unit systemd-networkd.service
}

fix_file_systems
mask_hardware_services
fix_terminals
silence_boot_hooks
fix_names
fix_network
