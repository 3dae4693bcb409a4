# Debian roots, made by mmdebstrap and kept outside the tree.
# shellcheck shell=bash

# What a small server has: an init, ssh, cron, sudo, a web server, and the tools
# that a migration calls. No rsync: the product brings its own.
LAB_PACKAGES=(
  systemd-sysv dbus openssh-server cron sudo nginx-light procps iproute2 quota
  libstdc++6 netbase less nano logrotate man-db bzip2 xz-utils file psmisc
  iputils-ping perl e2fsprogs ca-certificates
)

# The file system of a root depends on these only.
roots_digest() {
  {
    printf '%s\n' "${LAB_PACKAGES[@]}"
    find "$LAB_DIR/server" -type f -print0 | sort -z | xargs -0 sha256sum | sed "s, $LAB_DIR/,,"
  } | sha256sum | cut -c1-12
}

root_path() {
  local digest
  if [ "$1" = vm ]; then digest=$(vm_digest); else digest=$(roots_digest); fi
  printf '%s/roots/%s-%s' "$LAB_CACHE" "$1" "$digest"
}

# debian_root RELEASE DIRECTORY PACKAGES [OPTION of mmdebstrap...]
debian_root() {
  local release=$1 target=$2 packages=$3
  shift 3
  mmdebstrap --quiet --variant=apt --format=directory --include="$packages" "$@" \
    "$release" "$target" "deb $LAB_MIRROR $release main"
}

server_root_tree() {
  debian_root "$1" "$2" "$(IFS=, && printf '%s' "${LAB_PACKAGES[*]}")" \
    --customize-hook="$LAB_DIR/server/customize \"\$1\""
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
      if [ "$release" = vm ]; then vm_root "$new"; else server_root_tree "$release" "$new"; fi
    ) >"$LAB_CACHE/roots/$release.log" 2>&1; then
      tail -n 20 "$LAB_CACHE/roots/$release.log" >&2
      rm -rf "$new"
      die "mmdebstrap failed; its log is $LAB_CACHE/roots/$release.log"
    fi
    rm -rf "$LAB_CACHE/roots/$release-"*
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
    [ "$release" != vm ] || status=$(root_path vm)/packages
    printf '%s: %s (%s packages, %s)\n' "$release" "$(root_path "$release")" \
      "$(grep -c '^Package:' "$status")" \
      "$(du -sh "$(root_path "$release")" | cut -f1)"
  done
}
