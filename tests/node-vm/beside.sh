# What the tests share that run beside the node: it is rebooted, or servers are
# migrated to it.
# shellcheck shell=bash
# shellcheck source=tests/e2e/checks.sh
. "$QX_E2E/checks.sh"

work=/tmp/node-vm
mkdir -p "$work"

on_node() { lab exec node "$@"; }

boot_id() { on_node cat /proc/sys/kernel/random/boot_id </dev/null 2>/dev/null; }

reboot_node() {
  local before began=$SECONDS
  before=$(boot_id)
  step "Reboot of the host"
  on_node systemctl reboot </dev/null >/dev/null 2>&1 || true
  has_rebooted() { [[ $(boot_id) =~ ^[0-9a-f] ]] && [ "$(boot_id)" != "$before" ]; }
  check "the host comes back" until_so 1200 has_rebooted
  node_is_up() { [[ $(on_node systemctl is-system-running </dev/null 2>/dev/null) =~ ^(running|degraded)$ ]]; }
  check "and is up" until_so 600 node_is_up
  printf '        it took %d s\n' $((SECONDS - began))
}
