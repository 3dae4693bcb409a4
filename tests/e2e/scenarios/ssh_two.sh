#!/usr/bin/env bash
# two servers at once, of the releases of Debian before and after this one
# servers: alpha:bullseye beta:trixie
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

declare -A distributions=([alpha]=debian-11 [beta]=debian-13)
declare -A ids=([alpha]=101 [beta]=102)
declare -A runs

# Makes the shared functions speak of this server and its container.
choose() {
  server=$1
  ctid=${ids[$1]}
  distribution=${distributions[$1]}
  private=/var/lib/qx/private/$ctid
  work=/tmp/e2e/$1
  out=$work/qxmigrate.out
  mkdir -p "$work"
}

# Alpha is being copied to 101.
migrate_to_the_same() {
  choose alpha
  check "the first is being copied" until_copying 1
  choose beta
  ctid=101
  migrate --no-measure
  check_status 1
  check_begins "qxmigrate: stage 'lockVPS' failed: container 101 is being migrated already, by process "
  check "the first one's container is mounted still" grep -qF /var/lib/qx/root/101 /proc/mounts
  choose beta
}

step "Start both"
for name in alpha beta; do
  choose $name
  bash "$QX_E2E/curiosities.sh" "$(lab root $name)"
  open_source
  slow_source 1 40000
  [ $name = alpha ] || migrate_to_the_same
  begin_migration
  runs[$name]=$migration
done
for name in alpha beta; do
  choose $name
  check "$name is being copied" until_copying 1
done
check "both still run" kill -0 "${runs[alpha]}" "${runs[beta]}"
for name in alpha beta; do
  choose $name
  fast_source
done

for name in alpha beta; do
  choose $name
  step "$name, ${distributions[$name]}"
  migration=${runs[$name]}
  end_migration
  check_status 0
  check_says "Container $ctid is ready."
  check_not_locked
  check_is_the_server
  check "it is that release" grep -qx "VERSION_ID=\"${distributions[$name]#debian-}\"" \
    "$(container_root)/etc/os-release"
done
check_nothing_runs
for name in alpha beta; do
  choose $name
  start_services
  close_source
done
