# Debian roots, made by mmdebstrap and kept outside the tree.
# shellcheck shell=bash

# What a small server has: an init, ssh, cron, sudo, a web server, and the tools
# that a migration calls. No rsync: the product brings its own.
LAB_PACKAGES=(
  systemd-sysv dbus openssh-server cron sudo nginx-light procps iproute2 quota
  libstdc++6 netbase less nano logrotate man-db bzip2 xz-utils file psmisc
  iputils-ping perl e2fsprogs ca-certificates
)

# What a loaded server has besides, and its release.
LOADED_RELEASE=bullseye
LOADED_PACKAGES=(
  postgresql mariadb-server redis-server bind9 bind9-dnsutils postfix apache2 memcached
)

# Debian's stable release with an init of the time before systemd.
SYSVINIT_RELEASE=bookworm
sysvinit_packages() { printf '%s\n' "${LAB_PACKAGES[@]}" sysvinit-core init | grep -vx systemd-sysv; }

# The file system of a root depends on these only.
roots_digest() {
  {
    printf '%s\n' "${LAB_PACKAGES[@]}"
    find "$LAB_DIR/server" -type f -print0 | sort -z | xargs -0 sha256sum | sed "s, $LAB_DIR/,,"
  } | sha256sum | cut -c1-12
}

loaded_digest() {
  {
    roots_digest
    printf '%s\n' "$LOADED_RELEASE" "${LOADED_PACKAGES[@]}"
    cat "$LAB_DIR"/loaded/*
  } | sha256sum | cut -c1-12
}

sysvinit_digest() {
  {
    roots_digest
    sysvinit_packages
    cat "$LAB_DIR"/sysvinit/*
  } | sha256sum | cut -c1-12
}

root_path() {
  local digest
  case $1 in
    vm | vm-*) digest=$(vm_digest "$(vm_release "$1")") ;;
    loaded) digest=$(loaded_digest) ;;
    sysvinit) digest=$(sysvinit_digest) ;;
    node-*) digest=$(node_vm_digest "${1#node-}") ;;
    *) digest=$(roots_digest) ;;
  esac
  printf '%s/roots/%s-%s' "$LAB_CACHE" "$1" "$digest"
}

# debian_root RELEASE DIRECTORY PACKAGES [OPTION of mmdebstrap...]
# A release in the making has signed lists that hold for a week, and a mirror may be
# further behind: that is good enough here. The signatures must be right all the same.
debian_root() {
  local release=$1 target=$2 packages=$3
  shift 3
  mmdebstrap --quiet --variant=apt --format=directory --include="$packages" \
    --aptopt='Acquire::Check-Valid-Until "false"' "$@" \
    "$release" "$target" "deb $LAB_MIRROR $release main"
}

# What makes accounts and what mounts is in each of the older releases without being asked for.
server_root_tree() {
  debian_root "$1" "$2" "$(IFS=, && printf '%s' "${LAB_PACKAGES[*]}"),passwd,mount" \
    --customize-hook="$LAB_DIR/server/customize \"\$1\""
}

loaded_root_tree() {
  debian_root "$LOADED_RELEASE" "$1" \
    "$(IFS=, && printf '%s' "${LAB_PACKAGES[*]},${LOADED_PACKAGES[*]}")" \
    --customize-hook="$LAB_DIR/server/customize \"\$1\"" \
    --customize-hook="$LAB_DIR/loaded/customize \"\$1\""
}

sysvinit_root_tree() {
  debian_root "$SYSVINIT_RELEASE" "$1" "$(sysvinit_packages | paste -sd,)" \
    --customize-hook="$LAB_DIR/server/customize \"\$1\"" \
    --customize-hook="$LAB_DIR/sysvinit/customize \"\$1\""
}

# Makes the root of a release unless it is there.
make_root() {
  local release=$1 path new started=$SECONDS
  path=$(root_path "$release")
  [ ! -d "$path" ] || return 0
  need_tools mmdebstrap
  mkdir -p "$LAB_CACHE/roots"
  exec {roots_lock}>"$LAB_CACHE/roots/.lock"
  flock "$roots_lock"
  if [ ! -d "$path" ]; then
    say "making a Debian root with mmdebstrap: $release"
    new=$LAB_CACHE/roots/.new-$release
    rm -rf "$new"
    if ! (
      set -e
      case $release in
        vm | vm-*) vm_root "$(vm_release "$release")" "$new" ;;
        loaded) loaded_root_tree "$new" ;;
        sysvinit) sysvinit_root_tree "$new" ;;
        node-*) node_vm_root "${release#node-}" "$new" ;;
        *) server_root_tree "$release" "$new" ;;
      esac
    ) >"$LAB_CACHE/roots/$release.log" 2>&1; then
      tail -n 20 "$LAB_CACHE/roots/$release.log" >&2
      rm -rf "$new"
      die "mmdebstrap failed; its log is $LAB_CACHE/roots/$release.log"
    fi
    # Those of this release that are of an earlier day; a digest has twelve letters.
    rm -rf "$LAB_CACHE/roots/$release-"????????????
    mv "$new" "$path"
    say "made $path in $((SECONDS - started)) s"
  fi
  exec {roots_lock}>&-
}

roots_main() {
  local release status
  need_root
  [ $# -gt 0 ] || set -- bookworm
  for release in "$@"; do
    make_root "$release"
    status=$(root_path "$release")/var/lib/dpkg/status
    [ -e "$status" ] || status=$(root_path "$release")/packages
    printf '%s: %s (%s packages, %s)\n' "$release" "$(root_path "$release")" \
      "$(grep -c '^Package:' "$status")" \
      "$(du -sh "$(root_path "$release")" | cut -f1)"
  done
}
