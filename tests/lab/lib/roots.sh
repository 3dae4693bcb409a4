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

root_path() { printf '%s/roots/%s-%s' "$LAB_CACHE" "$1" "$(roots_digest)"; }

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
    say "making a Debian $release root with mmdebstrap"
    new=$LAB_CACHE/roots/.new-$release
    rm -rf "$new"
    mmdebstrap --quiet --variant=apt --format=directory \
      --include="$(IFS=, && printf '%s' "${LAB_PACKAGES[*]}")" \
      --customize-hook="$LAB_DIR/server/customize \"\$1\"" \
      "$release" "$new" "deb $LAB_MIRROR $release main" >"$LAB_CACHE/roots/$release.log" 2>&1 || {
      tail -n 20 "$LAB_CACHE/roots/$release.log" >&2
      rm -rf "$new"
      die "mmdebstrap failed; its log is $LAB_CACHE/roots/$release.log"
    }
    rm -rf "$LAB_CACHE/roots/$release-"*
    mv "$new" "$path"
    say "made $path in $((SECONDS - started)) s"
  fi
  exec {roots_lock}>&-
}

roots_main() {
  local release
  need_root
  [ $# -gt 0 ] || set -- bookworm
  for release in "$@"; do
    make_root "$release"
    printf '%s: %s (%s packages, %s)\n' "$release" "$(root_path "$release")" \
      "$(grep -c '^Package:' "$(root_path "$release")/var/lib/dpkg/status")" \
      "$(du -sh "$(root_path "$release")" | cut -f1)"
  done
}
