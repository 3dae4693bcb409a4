#!/usr/bin/env bash
# what the README says to type by hand, word for word, ends with a running container
# servers: oldserver
# shellcheck source=tests/node-vm/beside.sh
. "$QX_NODE_TESTS/beside.sh"

# said_under LINE: the commands of the indented block after the line of the README that
# begins so, each on one line and without the remark behind it.
said_under() {
  awk -v line="$1" '
    index($0, line) == 1 { found = 1; next }
    found && /^    / { begun = 1; sub(/^    /, ""); sub(/ +# .*/, ""); print; next }
    begun { exit }' "$QX_README" | sed -e ':again' -e '/\\$/{N;s/\\\n *//;b again' -e '}'
}

# What the preparation of the tests has done is taken back: the README is to do it.
on_node sh -c 'sed -i /^root:1000000:/d /etc/subuid /etc/subgid
  systemctl disable --now --quiet qx-containers' </dev/null

step "On the node, once it is installed"
mapfile -t commands < <(said_under 'On the node (packages' | grep -v '^cmake ')
check "the README has some: ${#commands[@]}" test "${#commands[@]}" -ge 2
for command in "${commands[@]}"; do
  check "$command" on_node sh -c "$command" </dev/null
done

step "Then, from the node"
mapfile -t commands < <(said_under 'Then, from the node')
check "the README has some: ${#commands[@]}" test "${#commands[@]}" -ge 4
for command in "${commands[@]}"; do
  began=$SECONDS
  status=0
  on_node sh -c "$command" </dev/null >"$work/said" 2>&1 || status=$?
  # A plan with warnings is one to go on with.
  most=0
  [[ $command != 'qxmigrate plan '* ]] || most=1
  check "$command (status $status, $((SECONDS - began)) s)" test "$status" -le "$most"
  [ "$status" -le "$most" ] || tail -n 40 "$work/said"
done

step "The container of the README"
inside() { on_node qxctl exec 101 "$@" </dev/null; }
is_up() { [[ $(inside systemctl is-system-running 2>/dev/null) =~ ^(running|degraded)$ ]]; }
check "the boot ends" until_so 300 is_up
check_equal "systemd is content" running "$(inside systemctl is-system-running 2>/dev/null || true)"
check_equal "its name" web "$(inside hostname)"
has_title() { curl -sm 10 http://192.0.2.10/ | grep -q '<title>A server</title>'; }
check "nginx shows the server's page at its address" until_so 60 has_title
check "its root is nobody on the node" on_node sh -c 'qxctl status 101 | grep -q "unprivileged  yes"' </dev/null
check "status tells of it" on_node sh -c 'qxctl status 101 | grep -q "^container 101:"' </dev/null
check_no "the node has no weakness to tell of but lxcfs" on_node sh -c \
  'qxctl status 101 | grep "host warning" | grep -v lxcfs' </dev/null
check "containers are started with the host" on_node systemctl is-enabled --quiet qx-containers </dev/null
on_node sh -c 'qxctl stop 101 && qxctl destroy 101' </dev/null >/dev/null
