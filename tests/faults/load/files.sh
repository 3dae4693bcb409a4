#!/usr/bin/env bash
# a server with so many small files more than it has, in memory
# number: 2000000
# servers: alpha
# shellcheck source=tests/e2e/ssh-lib.sh
. "$QX_E2E/ssh-lib.sh"

# Two files systems that hold them: the server's and the node's.
mkdir -p /var/lib/qx
mount -t tmpfs -o nr_inodes=0,size=90% many /var/lib/qx
chmod 755 /var/lib/qx
on_server sh -c 'mkdir /srv/many && mount -t tmpfs -o nr_inodes=0,size=90% many /srv/many'
# Through the server, as its mounts are its own. 500 in each directory.
lab exec $server perl -e '
  my $number = shift;
  for (my $i = 0; $i < $number; $i++) {
    my $folder = "/srv/many/" . int($i / 500);
    mkdir $folder if $i % 500 == 0;
    open(my $file, ">", "$folder/$i") or die "$folder/$i: $!";
    print $file $i if $i % 10 == 0;
  }' "$QX_NUMBER" </dev/null

# The largest memory of the migration in the making, and of what it has started, in KiB.
watch_memory() {
  local most=0 now
  while kill -0 "$migration" 2>/dev/null; do
    now=$(ps -o rss= -p "$migration" --ppid "$migration" 2>/dev/null | awk '{ sum += $1 } END { print sum + 0 }')
    [ "$now" -le "$most" ] || most=$now
    sleep 0.5
  done
  echo "$most"
}

open_source
began=$SECONDS
begin_migration
memory=$(watch_memory)
end_migration
check_status 0
printf '        %d files: %d s, first copy %d s, second %d s; at most %d MiB of memory\n' "$QX_NUMBER" \
  $((SECONDS - began)) "$(stage_seconds rSync)" "$(stage_seconds rSync2)" $((memory / 1024))
check_equal "all of them are there" "$QX_NUMBER" "$(find "$(container_root)/srv/many" -type f | wc -l)"
began=$SECONDS
check "the container is what the server is" \
  eval 'qxmigrate verify $ctid >"$out" 2>&1 || ! sed "s/^/        /" "$out"'
printf '        compared in %d s\n' $((SECONDS - began))
check_nothing_runs
start_services
close_source
