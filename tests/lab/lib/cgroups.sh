# Control groups of a lab: one in every hierarchy of the machine, below which
# everything that the lab starts stays, and which goes away with it.
# shellcheck shell=bash

# Prints "DIRECTORY KIND" for every hierarchy: the directory of the calling
# process's group, where a group of a lab goes; v1 or v2.
cgroup_places() {
  local mount kind own options
  while read -r mount kind options; do
    if [ "$kind" = cgroup2 ]; then
      # Controllers can be had below the top only.
      printf '%s v2\n' "$mount"
      continue
    fi
    own=$(awk -F: -v options="$options" '
      { n = split($2, names, ","); for (i = 1; i <= n; i++)
          if (names[i] != "" && index("," options ",", "," names[i] ",")) { print $3; exit } }
    ' /proc/self/cgroup)
    printf '%s v1\n' "$mount${own%/}"
  done < <(awk '{ for (i = 7; $i != "-"; i++); kind = $(i + 1)
    if (kind ~ /^cgroup2?$/) print $5, kind, $(i + 3) }' /proc/self/mountinfo)
}

# cgroups_enter NAME: makes the groups and moves the calling shell into them.
cgroups_enter() {
  local name=$1 place kind file
  while read -r place kind; do
    mkdir -p "$place/$name"
    for file in cpuset.cpus cpuset.mems; do
      if [ "$kind" = v1 ] && [ -e "$place/$file" ]; then
        cat "$place/$file" >"$place/$name/$file"
        echo 1 >"$place/$name/cgroup.clone_children"
      fi
    done
    echo "$BASHPID" >"$place/$name/cgroup.procs"
  done < <(cgroup_places)
}

# cgroups_into_leaf NAME: for the second generation, where a group that has
# groups with controllers has no processes of its own. The name is the one that
# the first process's group has elsewhere: LXC puts its groups beside it.
cgroups_into_leaf() {
  local name=$1 mount
  while read -r mount; do
    mkdir -p "$mount/$name/init.scope"
    echo "$BASHPID" >"$mount/$name/init.scope/cgroup.procs"
  done < <(awk '{ for (i = 7; $i != "-"; i++); if ($(i + 1) == "cgroup2") print $5 }' \
    /proc/self/mountinfo)
}

# cgroups_remove NAME: ends what is left in the groups and removes them.
cgroups_remove() {
  local name=$1 place group pid try
  while read -r place _; do
    [ -d "$place/$name" ] || continue
    for try in 1 2 3 4 5 6 7 8 9 10; do
      while read -r group; do
        while read -r pid; do
          kill -KILL "$pid" 2>/dev/null || true
        done < <(cat "$group/cgroup.procs" 2>/dev/null)
        rmdir "$group" 2>/dev/null || true
      done < <(find "$place/$name" -depth -type d 2>/dev/null)
      [ -d "$place/$name" ] || break
      sleep 0.$try
    done
    [ ! -d "$place/$name" ] || say "$place/$name could not be removed"
  done < <(cgroup_places)
}

# On the node: mounts the hierarchies at /sys/fs/cgroup the way that the machine
# has them, rooted at the lab's own groups. $1: the machine's mounts, as mountinfo.
cgroups_mount() {
  local mount kind options source
  if awk '{ for (i = 7; $i != "-"; i++); if ($(i + 1) == "cgroup") found = 1 }
          END { exit !found }' "$1"; then
    mount -t tmpfs -o mode=755 lab-cgroup /sys/fs/cgroup
  fi
  while read -r mount kind options; do
    [ "$mount" = /sys/fs/cgroup ] || mkdir -p "$mount"
    if [ "$kind" = cgroup2 ]; then
      mount -t cgroup2 cgroup2 "$mount"
      # Those that the first generation uses are not to be had here.
      tr ' ' '\n' <"$mount/cgroup.controllers" | while read -r controller; do
        echo "+$controller" >"$mount/cgroup.subtree_control" 2>/dev/null || true
      done
    else
      source=$(tr ',' '\n' <<<"$options" | grep -vxE 'rw|ro|xattr|release_agent=.*|clone_children' |
        paste -sd,)
      [[ $source != name=* ]] || source=none,$source
      mount -t cgroup -o "$source" cgroup "$mount"
    fi
  done < <(awk '{ for (i = 7; $i != "-"; i++); kind = $(i + 1)
    if (kind ~ /^cgroup2?$/ && $5 ~ /^\/sys\/fs\/cgroup/) print $5, kind, $(i + 3) }' "$1")
}
