#!/usr/bin/env bash
# the guide's bridges and its firewall, as they stand there, carry what containers send
# shellcheck source=tests/node-vm/beside.sh
. "$QX_NODE_TESTS/beside.sh"

# block NUMBER TITLE: this one of the indented blocks of the guide's section. The card has
# another name here.
block() {
  awk -v number="$1" -v title="$2" '
    /^#/ { found = $0 == title }
    found && /^    / { count += !was; was = 1; if (count == number) { sub(/^    /, ""); print } next }
    { was = 0 }' "$QX_GUIDE" | sed 's/eno1/eth0/g' | grep .
}
# put_lines FILE: standard input becomes this file of the node.
put_lines() { on_node sh -c "cat >$1"; }
inside() { on_node qxctl exec 252 "$@" </dev/null; }
reaches() { inside ping -c 1 -W 10 "$1" >/dev/null 2>&1; }

# Where a container is: its host's address, the bridge, what the host leaves by.
check_bridge() {
  check "the bridge has the address" on_node sh -c \
    'ip -4 address show qxbr0 | grep -q "inet 192.0.2.1/24"' </dev/null
  check "the host leaves by the gateway" on_node sh -c \
    'ip route show default | grep -q "via 192.0.2.254 dev qxbr0"' </dev/null
  check "the card has no address of its own" on_node sh -c \
    '! ip -4 address show eth0 | grep -q inet' </dev/null
}
# start_small BRIDGE ADDRESS GATEWAY
start_small() {
  on_node bash -s <<END
. /root/node-vm/lib.sh
small_template
remove 252
make 252 OSTEMPLATE=small BRIDGE=$1 NETIF="'ifname=eth0'"
up 252
trap - EXIT
END
  inside sh -c "ip address add $2 dev eth0; ip link set eth0 up; ip route add default via $3"
}

on_node sh -c 'cp /etc/network/interfaces /root/interfaces.kept; cp /etc/nftables.conf /root/nftables.kept' </dev/null

step "With ifupdown"
{ printf 'auto lo\niface lo inet loopback\n\n' && block 1 '## A bridge'; } | put_lines /etc/network/interfaces
reboot_node
check_bridge
check "with the card's MAC address" on_node sh -c \
  '[ "$(cat /sys/class/net/qxbr0/address)" = "$(cat /sys/class/net/eth0/address)" ]' </dev/null
gateway=$(block 5 '## A bridge')
check_equal "what containers are told" GATEWAY=192.0.2.254 "$gateway"
check "a container starts there" start_small qxbr0 192.0.2.152/24 "${gateway#*=}"
check "and reaches the gateway" reaches 192.0.2.254

step "Without a card, behind a firewall that lets nothing pass"
# Beside the other, which is the way to this machine.
{ printf '\n' && block 1 '### Without a card' | sed 's/qxbr0/qxbr1/'; } |
  on_node sh -c 'cat >>/etc/network/interfaces && ifup qxbr1'
check "packets are forwarded" on_node sh -c "$(block 2 '### Without a card')" </dev/null >/dev/null
check "a container starts there" start_small qxbr1 198.51.100.7/24 198.51.100.1
on_node sh -c 'sed -i "/hook forward/s/.*/type filter hook forward priority filter; policy drop;/" \
  /etc/nftables.conf && systemctl restart nftables' </dev/null
check "it reaches the host" reaches 198.51.100.1
check "and nothing beyond" eval '! reaches 192.0.2.254'
{
  on_node cat /etc/nftables.conf </dev/null | awk -v lines="$(block 1 '## nftables' | sed 's/qxbr0/qxbr1/')" \
    '{ print } /hook forward/ { print lines }'
  block 2 '## nftables' | sed 's/qxbr0/qxbr1/'
} >"$work/nftables"
put_lines /etc/nftables.conf <"$work/nftables"
check "the guide's rules" on_node sh -c 'systemctl enable --quiet nftables && systemctl restart nftables' </dev/null
check "it gets beyond" until_so 30 reaches 192.0.2.254
ip route add 198.51.100.0/24 via 192.0.2.1
check "and can be reached" ping -qc 1 -W 10 198.51.100.7
ip route del 198.51.100.0/24 via 192.0.2.1

step "With systemd-networkd"
on_node sh -c 'cp /root/nftables.kept /etc/nftables.conf; rm /etc/sysctl.d/50-qx.conf
  printf "auto lo\niface lo inet loopback\n" >/etc/network/interfaces
  systemctl enable --quiet systemd-networkd' </dev/null
block 2 '## A bridge' | put_lines /etc/systemd/network/10-qxbr0.netdev
block 3 '## A bridge' | put_lines /etc/systemd/network/20-eth0.network
block 4 '## A bridge' | put_lines /etc/systemd/network/30-qxbr0.network
reboot_node
check_bridge
check "a container starts there" start_small qxbr0 192.0.2.152/24 192.0.2.254
check "and reaches the gateway" reaches 192.0.2.254

on_node bash -c '. /root/node-vm/lib.sh; trap - EXIT; remove 252
  rm /etc/systemd/network/*qxbr0* /etc/systemd/network/20-eth0.network
  systemctl disable --quiet systemd-networkd
  mv /root/interfaces.kept /etc/network/interfaces; rm /root/nftables.kept' </dev/null
