
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
