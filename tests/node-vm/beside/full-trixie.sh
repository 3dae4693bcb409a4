#!/usr/bin/env bash
# a whole migration over ssh of a machine with Debian 13 and disk quotas
# servers: beta:vm-trixie
server=beta
# shellcheck source=tests/node-vm/beside/full-migration.sh
. "$QX_NODE_TESTS/beside/full-migration.sh"
