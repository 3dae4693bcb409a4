#!/usr/bin/env bash
# an account that is not root but may use sudo -n, its key held by an ssh-agent
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

root=$(lab root $server)
let_in operator1
printf 'operator1 ALL=(root) NOPASSWD: ALL\n' >"$root/etc/sudoers.d/operator1"
chmod 440 "$root/etc/sudoers.d/operator1"
# Login scripts that talk, whoever asks.
sed -i '1i echo "Welcome to alpha"; echo "Mind the step" >&2' "$root/home/operator1/.bashrc"
bash "$QX_E2E/curiosities.sh" "$root"
open_source

step "The key is nowhere but with the agent"
eval "$(ssh-agent -s)" >/dev/null
ssh-add -q /root/.ssh/id_ed25519
rm /root/.ssh/id_ed25519
cat >/root/.ssh/config <<CONFIG
Host web
  HostName $(lab address $server)
  User operator1
CONFIG

step "Migrate, by a name from the user's own ssh configuration"
source=web
migrate
check_status 0
check_says "Container $ctid is ready."
check "the files go past ssh" grep -q "the copy goes directly to .*, over TLS 1.3" "$out"
kill "$SSH_AGENT_PID"

step "The copy is the server"
check_is_the_server
check_nothing_runs
start_services
close_source
