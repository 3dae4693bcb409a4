# Shared by all parts of the lab.
# shellcheck shell=bash

LAB_CACHE=${QX_LAB_CACHE:-/var/cache/qxlinmigrate-lab}
LAB_MIRROR=${QX_LAB_MIRROR:-http://deb.debian.org/debian}
# On the node: what belongs to the running lab.
LAB_HERE=/run/qxlab

say() { printf 'lab: %s\n' "$*" >&2; }

die() {
  printf 'lab: %s\n' "$*" >&2
  exit 1
}

need_root() { [ "$(id -u)" = 0 ] || die "only root can make namespaces and containers"; }

need_tools() {
  local tool missing=
  for tool in "$@"; do
    command -v "$tool" >/dev/null || missing="$missing $tool"
  done
  [ -z "$missing" ] || die "these programs are missing:$missing (see packages.txt)"
}

need_node() { [ -d "$LAB_HERE/servers" ] || die "this works on the node only, inside 'lab run'"; }

# wait_for SECONDS COMMAND...: until the command succeeds.
wait_for() {
  local end=$((SECONDS + $1))
  shift
  until "$@"; do
    [ "$SECONDS" -lt "$end" ] || return 1
    sleep 0.1
  done
}
