# For scenarios about ssh itself: what they share beyond lib.sh, which they get
# through this file.
# shellcheck shell=bash
QX_E2E_TRANSPORT=ssh
# shellcheck source=tests/e2e/lib.sh
. "$QX_E2E/lib.sh"

# check_begins TEXT: the migration printed a line that begins like this.
check_begins() {
  local found
  found=$(<"$out")
  check "says: $1..." has_line_that_begins "$1" "$found"
}

has_line_that_begins() { [[ $'\n'"$2" == *$'\n'"$1"* ]]; }

# check_refused TEXT [OPTION...]: a migration with these options ends while it
# connects, with this text, and nothing is left on either side.
check_refused() {
  local text=$1
  shift
  migrate "$@"
  check_status 1
  check_begins "qxmigrate: stage 'connect' failed: $text"
  check_no "no directory of ssh's own is left" find /tmp /run -maxdepth 1 -name 'qxmigrate*'
  check_rolled_back
}

# let_in ACCOUNT: the node's key opens this account of the server.
let_in() {
  local home=home/$1 root
  root=$(lab root "$server")
  [ "$1" != root ] || home=root
  install -d -m 700 -o 1000 -g 1000 "$root/$home/.ssh"
  install -m 600 -o 1000 -g 1000 /root/.ssh/id_ed25519.pub "$root/$home/.ssh/authorized_keys"
}

start_services() {
  local name
  for name in nginx ticker; do on_server "/etc/init.d/$name" start >/dev/null; done
}

# Seconds that a stage took.
stage_seconds() {
  awk -v stage="$1" '$1 == stage { for (i = 2; i <= NF; ++i) if ($i == "s") print int($(i - 1)) }' \
    "$out" | tail -n 1
}
