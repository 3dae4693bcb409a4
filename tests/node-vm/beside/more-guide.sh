#!/usr/bin/env bash
# what the guide to a node says to type, word for word, leaves nothing to warn about
# shellcheck source=tests/node-vm/beside.sh
. "$QX_NODE_TESTS/beside.sh"

# typed_under TITLE: the commands of the guide's section.
typed_under() {
  awk -v title="## $1" '$0 == title { found = 1; next } found && /^## / { exit }
    found && /^    [a-z]/ { sub(/^    /, ""); sub(/ +# .*/, ""); print }' "$QX_GUIDE"
}
typed() { on_node sh -c "$1" </dev/null >"$work/said" 2>&1 || { cat "$work/said" && return 1; }; }
warnings() {
  on_node qxctl status 251 </dev/null >"$work/status" 2>&1 || true
  grep -q '^container 251:' "$work/status" || echo "no status: $(cat "$work/status")"
  grep 'host warning' "$work/status" || true
}

step "As the installer leaves it"
on_node sh -c 'sed -i /^root:1000000:/d /etc/subuid /etc/subgid
  echo OSTEMPLATE=small >/etc/sysconfig/qx-scripts/251.conf' </dev/null
found=$(warnings)
check "status warns of privileged containers" grep -q 'will be privileged' <<<"$found"
check "and of lxcfs" grep -q nsdelegate <<<"$found"

for title in Packages 'Is it well set up?'; do
  step "$title"
  mapfile -t commands < <(typed_under "$title")
  check "the guide has some: ${#commands[@]}" test "${#commands[@]}" -ge 3
  for command in "${commands[@]}"; do check "$command" typed "$command"; done
done
check_equal "nothing is warned of" "" "$(warnings)"

step "lxcfs is started again"
on_node systemctl restart lxcfs </dev/null
# It takes the option off when it has begun.
sleep 10
check "it runs" on_node systemctl is-active --quiet lxcfs </dev/null
check_equal "still nothing is warned of" "" "$(warnings)"
on_node systemctl reload lxcfs </dev/null
sleep 10
check_equal "nor when it has loaded its parts again" "" "$(warnings)"
on_node sh -c 'rm -r /etc/systemd/system/lxcfs.service.d /etc/sysconfig/qx-scripts/251.conf
  systemctl daemon-reload && systemctl restart lxcfs' </dev/null
