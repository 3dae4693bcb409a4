#!/usr/bin/env bash
# a passphrase and a password are asked for once, on the terminal
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

# migrate_on_terminal PROMPT ANSWER: a migration by a person at a terminal, who
# answers when asked.
migrate_on_terminal() {
  local prompt=$1 answer=$2 typist
  : >"$out"
  rm -f "$work/keyboard"
  mkfifo "$work/keyboard"
  (
    exec 3>"$work/keyboard"
    until_so 30 grep -qF "$prompt" "$out" && printf '%s\n' "$answer" >&3
    # The terminal is there until the migration has ended.
    until_so 120 test -e "$work/ended"
  ) &
  typist=$!
  rm -f "$work/ended"
  status=0
  script -qefc "qxmigrate $source --ctid $ctid --no-measure --distribution $distribution \
    --hostname $server --stop-service nginx --stop-service ticker" "$out" \
    <"$work/keyboard" >/dev/null || status=$?
  : >"$work/ended"
  wait "$typist" || true
  sed 's/^/    | /; s/\r//g' "$out"
  check_status 0
  check_equal "it asked once" 1 "$(grep -cF "$prompt" "$out")"
  check_no "the answer was not shown" grep -F "$answer" "$out"
  # What a terminal does with it: nothing else is written there until it is answered.
  check "the question stays" grep -qP "(^|\r)\Q$prompt\E:?\s*$" "$out"
  check "the container is there" test -e "$(container_root)/etc/debian_version"
  qxctl destroy $ctid >/dev/null
  start_services
}

open_source

step "A key with a passphrase"
ssh-keygen -q -p -f /root/.ssh/id_ed25519 -P '' -N 'sesame and more'
migrate_on_terminal "Enter passphrase for key '/root/.ssh/id_ed25519'" 'sesame and more'
ssh-keygen -q -p -f /root/.ssh/id_ed25519 -P 'sesame and more' -N ''

step "A password"
cp -p "$(lab root $server)"/etc/shadow{,-} "$work/"
on_server sh -c 'echo root:open-the-door | chpasswd;
  echo PermitRootLogin yes >/etc/ssh/sshd_config.d/password.conf; systemctl reload ssh'
# It takes nothing for a moment.
until_so 10 bash -c "exec 3<>/dev/tcp/$server/22" 2>/dev/null
mv /root/.ssh/id_ed25519 "$work/key"
migrate_on_terminal "root@$server's password:" open-the-door
mv "$work/key" /root/.ssh/id_ed25519
cp -p "$work"/shadow{,-} "$(lab root $server)/etc/"
on_server sh -c 'rm -f /etc/ssh/sshd_config.d/password.conf; systemctl reload ssh'
close_source
