# What the boot scenarios share, beside lib.sh: the node's disk, which outlives
# the node, and what is asked of a started container.
# shellcheck shell=bash
# shellcheck source-path=SCRIPTDIR source=lib.sh
. "$QX_E2E/lib.sh"

address=192.0.2.101

# Units that may be in the state "failed", each with the reason. None is known.
declare -A may_fail=()

# Puts the containers and their configurations onto the disk given by QX_DISK.
use_disk() {
  local configs=/etc/sysconfig/qx-scripts
  if [ ! -d "$QX_DISK/private" ]; then
    mkdir -p "$QX_DISK/private" "$QX_DISK/configs"
    cp -a "$configs/." "$QX_DISK/configs/"
  fi
  mkdir -p /var/lib/qx/private
  mount --bind "$QX_DISK/private" /var/lib/qx/private
  mount --bind "$QX_DISK/configs" "$configs"
}

in_container() { qxctl exec $ctid "$@" </dev/null; }

system_state() { in_container systemctl is-system-running 2>/dev/null || true; }

boot_is_over() { [[ $(system_state) =~ ^(running|degraded)$ ]]; }

answers() { (exec 3<>"/dev/tcp/$address/$1") 2>/dev/null; }

says_title() {
  local page
  page=$(exec 3<>"/dev/tcp/$address/80" && printf 'GET / HTTP/1.0\r\n\r\n' >&3 && cat <&3) 2>/dev/null
  [[ $page == *'<title>'"$1"'</title>'* ]]
}

# Ssh as an administrator: the container shows the server's keys.
login() {
  ssh -n -o BatchMode=yes -o HostKeyAlias=$server -o ConnectTimeout=5 "$@"
}

check_boot() {
  local unit
  check "the boot ends within 60 s" until_so 60 boot_is_over
  step "State: $(system_state)"
  while read -r unit _; do
    check "unit $unit may fail: ${may_fail[$unit]:-no reason is known}" \
      test -n "${may_fail[$unit]:-}"
    in_container journalctl --no-pager -n 15 -u "$unit" || true
  done < <(in_container systemctl list-units --failed --plain --no-legend --no-pager)
  check_equal "no job waits" "No jobs running." "$(in_container systemctl list-jobs --no-pager)"
}

check_services() {
  check "sshd answers on $address" until_so 20 answers 22
  check "nginx shows the server's page on $address" until_so 20 says_title "A server"
  check_equal "root can log in, and finds the name" "$server" "$(login root@$address hostname)"
  check_equal "a user can log in" operator1 "$(login operator1@$address id -un)"
  check_equal "the init is the guest's process 1" 1 "$(in_container pgrep -o '^(systemd|init)$')"
}

# cron starts jobs at full minutes.
check_cron() { check "cron runs jobs" until_so 75 test -e "$(container_root)/var/lib/boot-cron"; }

# Makes the package boot-test, which brings a service.
make_package() {
  local root=$work/package
  rm -rf "$root"
  mkdir -p "$root/DEBIAN" "$root/lib/systemd/system" "$root/etc/init.d"
  cat >"$root/DEBIAN/control" <<'END'
Package: boot-test
Version: 1
Architecture: all
Maintainer: Lab <lab@localhost>
Description: a package that brings a service
END
  cat >"$root/lib/systemd/system/boot-test.service" <<'END'
[Service]
ExecStart=/bin/sleep 1000
END
  cat >"$root/DEBIAN/postinst" <<'END'
#!/bin/sh
set -e
[ ! -d /run/systemd/system ] || { systemctl daemon-reload && systemctl start boot-test; }
END
  cat >"$root/DEBIAN/prerm" <<'END'
#!/bin/sh
set -e
[ ! -d /run/systemd/system ] || systemctl stop boot-test
END
  chmod 755 "$root/DEBIAN/postinst" "$root/DEBIAN/prerm"
  dpkg-deb --root-owner-group --build "$root" "$(container_root)/root/boot-test.deb" >/dev/null
}

check_package() {
  make_package
  check "a package with a service can be installed" \
    in_container sh -c 'apt-get -qq -y install /root/boot-test.deb >/root/apt.log 2>&1'
  check "its service runs" in_container systemctl is-active --quiet boot-test
  check "it can be removed" in_container sh -c 'apt-get -qq -y remove boot-test >>/root/apt.log 2>&1'
  check "its service is gone" eval '! in_container systemctl is-active --quiet boot-test'
  in_container rm -f /root/boot-test.deb /root/apt.log
}

limit_in_force() { cat /sys/fs/cgroup/{pids,.}/lxc.payload.qx-"$ctid"/pids.max 2>/dev/null; }
