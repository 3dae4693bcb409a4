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
  if [ "$QX_RELEASE" = sysvinit ]; then
    truncate -s 4G "$QX_DISK/btrfs"
    mkfs.btrfs -q "$QX_DISK/btrfs"
    mount -o loop "$QX_DISK/btrfs" "$QX_DISK/private"
  fi
  mount --bind "$QX_DISK/private" /var/lib/qx/private
  mount --bind "$QX_DISK/configs" "$configs"
  set_up_host
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
  local unit state failed
  check "the boot ends within 60 s" until_so 60 boot_is_over
  state=$(system_state)
  failed=$(in_container systemctl list-units --failed --plain --no-legend --no-pager)
  check "systemd says $state, which its failed units explain" test \
    "$state${failed:+ failed}" = running -o "$state${failed:+ failed}" = "degraded failed"
  while read -r unit _; do
    [ -n "$unit" ] || continue
    check "unit $unit may fail: ${may_fail[$unit]:-no reason is known}" \
      test -n "${may_fail[$unit]:-}"
    in_container journalctl --no-pager -n 15 -u "$unit" || true
  done <<<"$failed"
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

# --- Limits -------------------------------------------------------------------

# group_file CONTROLLER FILE1 FILE2: the file of the container's control group, in
# the generation that the machine has the controller in.
group_file() {
  local group=lxc.payload.qx-$ctid place
  for place in "/sys/fs/cgroup/$1/$group/$2" "/sys/fs/cgroup/unified/$group/$3" \
    "/sys/fs/cgroup/$group/$3"; do
    if [ -e "$place" ]; then
      printf '%s\n' "$place"
      return
    fi
  done
  printf 'no group of %s\n' "$1"
}

limit_in_force() { cat "$(group_file pids pids.max pids.max)"; }

# record NAME: the limit that the container's configuration has.
record() {
  sed -n "s/^$1=[\"']\{0,1\}\([0-9]*:\)\{0,1\}\([0-9]*\)[\"']\{0,1\}\$/\2/p" \
    /etc/sysconfig/qx-scripts/$ctid.conf
}

# What the kernel holds is what the configuration says, in the kernel's units.
check_limits() {
  local tasks memory weight file expected
  tasks=$(record NUMPROC)
  memory=$(record SLMMEMORYLIMIT)
  weight=$(record CPUUNITS)
  check "the configuration has limits: $tasks tasks, $memory bytes, weight $weight" \
    test "$tasks" -gt 0 -a "$memory" -gt 0 -a "$weight" -gt 0
  file=$(group_file pids pids.max pids.max)
  check_equal "tasks (${file##*/})" "$tasks" "$(cat "$file")"
  file=$(group_file memory memory.limit_in_bytes memory.max)
  # The kernel counts whole pages.
  check_equal "memory (${file##*/})" $((memory / 4096 * 4096)) "$(cat "$file")"
  file=$(group_file cpu cpu.shares cpu.weight)
  case $file in
    *.shares) expected=$((weight * 1024 / 1000)) ;;
    *) expected=$((weight / 10)) ;;
  esac
  check_equal "weight (${file##*/})" "$expected" "$(cat "$file")"
  check_shown NUMPROC "$tasks"
  check_shown SLMMEMORYLIMIT "$memory"
  check_shown CPUUNITS "$expected"
  check "the guest's init is in that group" grep -q "/lxc.payload.qx-$ctid\(/\|\$\)" \
    "/proc/$(init_pid)/cgroup"
}

check_shown() {
  check "qxctl status shows $1" grep -q "$1: cgroup.* = $2\$" <(qxctl status $ctid)
}

# The guest's init, as the node's processes see it.
init_pid() { cut -d' ' -f1 /run/qx/$ctid.init; }

# --- Variants: each release boots from another storage ------------------------

# The host's settings. Every node of the release gets them.
set_up_host() {
  case $QX_RELEASE in
    bookworm) printf 'UNPRIVILEGED=no\n' ;;
    bullseye) printf 'STORAGE=ext4\n' ;;
    trixie)
      printf 'UNPRIVILEGED=yes\nUNPRIVILEGED_IDS=1000000:65536\n'
      usermod --add-subuids 1000000-1065535 --add-subgids 1000000-1065535 root
      ;;
    sysvinit) printf 'STORAGE=btrfs\n' ;;
  esac >>/etc/qx/qx.conf
}

check_storage() {
  local fs=$private/fs pid uid
  case $QX_RELEASE in
    bullseye)
      check "the tree lies in an image" test -f "$private/.qx-image"
      check_equal "of the configured size" "$(record DISKSPACE)" \
        $(($(stat -c %s "$private/.qx-image") / 1024))
      check_equal "which is mounted" ext2/ext3 "$(stat -f -c %T /var/lib/qx/root/$ctid)"
      check "the guest sees its size" test "$(in_container df -k --output=size / | tail -n 1)" -lt \
        "$(record DISKSPACE)"
      check "qxctl status tells" grep -q '^  storage  *ext4 image of 4096 MiB$' <(qxctl status $ctid)
      ;;
    trixie)
      pid=$(init_pid)
      uid=$(stat -c %u "/proc/$pid")
      check_equal "root of the guest is a nobody of the node" 1000000 "$uid"
      check_equal "and root inside" 0 "$(in_container id -u)"
      check_equal "files on disk keep their owners" "0 1000" \
        "$(stat -c %u "$fs/etc/passwd" "$fs/home/operator1" | paste -sd' ')"
      check_equal "the guest sees the same owners" "0 1000" \
        "$(in_container stat -c %u /etc/passwd /home/operator1 | paste -sd' ')"
      in_container touch /root/made-inside
      check_equal "what the guest makes has them, too" 0 "$(stat -c %u "$fs/root/made-inside")"
      in_container rm /root/made-inside
      check "qxctl status tells" grep -q '^  unprivileged  yes$' <(qxctl status $ctid)
      ;;
    sysvinit) check_equal "the tree is a subvolume" 256 "$(stat -c %i "$fs")" ;;
    bookworm)
      check "the tree is a directory" test ! -e "$private/.qx-image" -a -d "$fs/etc"
      check_equal "root of the guest is the node's" 0 "$(stat -c %u "/proc/$(init_pid)")"
      check "qxctl status says what that means" \
        grep -q '^  unprivileged  no: its root can become root of this host' <(qxctl status $ctid)
      ;;
    *) check "the tree is a directory" test ! -e "$private/.qx-image" -a -d "$fs/etc" ;;
  esac
}

check_nothing_mounted() {
  check_no "nothing of the container is mounted" grep -E "/var/lib/qx/(root|private)/$ctid" /proc/mounts
}

# with_tree COMMAND...: while the files are where they are.
with_tree() {
  qxctl mount $ctid >/dev/null
  "$@"
  qxctl umount $ctid >/dev/null
}
