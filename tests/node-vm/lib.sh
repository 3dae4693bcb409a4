# What the tests that run on the node share: small containers that are made and boot in
# no time even where the processor is emulated, and what is asked of them.
# shellcheck shell=bash
# shellcheck source=tests/e2e/checks.sh
. "${QX_NODE_TESTS:-/root/node-vm}/checks.sh"

work=/root/node-vm/work
configs=/etc/sysconfig/qx-scripts
templates=/var/lib/qx/template
mkdir -p "$work"

# --- Containers ---------------------------------------------------------------

# configure ID NAME=VALUE...: writes the container's configuration.
configure() {
  local id=$1
  shift
  printf '%s\n' "$@" >"$configs/$id.conf"
}

# make ID NAME=VALUE...: configures and creates a container.
make() {
  configure "$@"
  qxctl create "$1" >/dev/null || return 1
}

# quietly COMMAND...: what it says is shown when it fails.
quietly() {
  local said
  if ! said=$("$@" 2>&1 </dev/null); then
    printf '%s\n' "$said" | sed 's/^/        said: /'
    return 1
  fi
}

# ends_with STATUS TEXT COMMAND...: it ends with this status, and says this.
ends_with() {
  local expected=$1 text=$2 said found=0
  shift 2
  said=$("$@" 2>&1 </dev/null) || found=$?
  [ "$found" = "$expected" ] && [[ $said == *"$text"* ]] && return 0
  printf '        status %s, expected %s with "%s"; said: %s\n' "$found" "$expected" "$text" "$said"
  return 1
}

inside() {
  local id=$1
  shift
  qxctl exec "$id" "$@" </dev/null
}

init_pid() { cut -d' ' -f1 "/run/qx/$1.init"; }

# is_gone PID: the init has ended; LXC may still be putting the container away.
is_gone() { [ ! -e "/proc/$1" ]; }

# reboots_inside ID: its init is another one afterwards.
reboots_inside() {
  local id=$1 before
  before=$(cat "/run/qx/$id.init")
  another_init() {
    local now
    now=$(cat "/run/qx/$id.init" 2>/dev/null) && [ -n "$now" ] && [ "$now" != "$before" ]
  }
  inside "$id" rm /booted
  inside "$id" reboot
  # Its profile of AppArmor is loaded anew, which takes an emulated processor a while.
  check "another init runs" until_so 240 another_init
  check "and has booted" until_so 60 inside "$id" test -e /booted
  check "it runs" status_says "$id" ', running,'
}

status_says() { qxctl status "$1" | grep -Eq -- "$2" || { qxctl status "$1" && return 1; }; }

private_of() { sed -n 's/^VE_PRIVATE=//p' "$configs/$1.conf" | grep . || echo "/var/lib/qx/private/$1"; }

check_nothing_mounted() {
  check_no "nothing of container $1 is mounted" grep -E "/(root|private)/$1[/ ]" /proc/mounts
}

# remove ID...: whatever state it is in.
remove() {
  local id
  for id in "$@"; do
    qxctl stop --fast "$id" >/dev/null 2>&1 || true
    qxctl destroy "$id" >/dev/null 2>&1 || true
  done
}

# --- Templates ----------------------------------------------------------------

# A system of BusyBox alone. It tells in /ended that it was shut down in an orderly way,
# and in /ended-before that its last run was.
# Tests run side by side: whoever needs it first makes it, and nobody sees half of it.
small_template() {
  mkdir -p "$templates"
  (
    flock 9
    [ -d "$templates/small" ] || make_small_template
  ) 9>"$templates/.small.lock"
}

make_small_template() {
  local root name
  root=$(mktemp -d "$templates/.small.XXXXXX")
  chmod 755 "$root"
  mkdir -p "$root"/{bin,sbin,etc,proc,sys,dev,tmp,run,root,var,usr/bin}
  chmod 1777 "$root/tmp"
  cp "$(command -v busybox)" "$root/bin/busybox"
  for name in $("$root/bin/busybox" --list); do
    [ "$name" = busybox ] || ln -s busybox "$root/bin/$name"
  done
  ln -s ../bin/busybox "$root/sbin/init"
  ln -s ../bin/busybox "$root/sbin/poweroff"
  printf 'root:x:0:0:root:/root:/bin/sh\nuser:x:1000:1000::/tmp:/bin/sh\n' >"$root/etc/passwd"
  printf 'root:x:0:\nuser:x:1000:\n' >"$root/etc/group"
  printf '::sysinit:/etc/boot\n::shutdown:/etc/halt\n' >"$root/etc/inittab"
  cat >"$root/etc/boot" <<'END'
#!/bin/sh
rm -f /ended-before
[ ! -e /ended ] || mv /ended /ended-before
mount -t cgroup2 cgroup2 /sys/fs/cgroup 2>/dev/null
echo booted >/booted
END
  printf '#!/bin/sh\necho ended >/ended\nsync\n' >"$root/etc/halt"
  chmod 755 "$root/etc/boot" "$root/etc/halt"
  mkdir "$root/home"
  chown 1000:1000 "$root/home"
  mv "$root" "$templates/small"
}

# up ID: a small container is started and its init has done its work.
up() {
  quietly qxctl start "$1" && until_so 30 inside "$1" test -e /booted
}

# systemd_is_up ID
systemd_is_up() {
  [[ $(inside "$1" systemctl is-system-running 2>/dev/null || true) =~ ^(running|degraded)$ ]]
}

check_systemd() {
  check "container $1: the boot ends" until_so 240 systemd_is_up "$1"
  check_equal "container $1: systemd is content" running \
    "$(inside "$1" systemctl is-system-running 2>/dev/null || true)"
  check_no "container $1: no unit failed" \
    inside "$1" systemctl list-units --failed --plain --no-legend --no-pager
}
