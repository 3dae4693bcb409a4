# Installs the packages of packages.txt; sourced. Needs root and apt-get.
# shellcheck shell=bash

# install_packages GROUP...: what is missing of these groups.
install_packages() {
    local list=$1/packages.txt group name program missing=()
    shift
    while read -r group name program; do
        case $group in '' | '#'*) continue ;; esac
        [[ " $* " == *" $group "* ]] || continue
        dpkg-query -W -f '${Status}' "$name" 2>/dev/null | grep -q '^install ok installed$' ||
            { [ -n "$program" ] && command -v "$program" >/dev/null; } || missing+=("$name")
    done <"$list"
    if [ ${#missing[@]} = 0 ]; then
        echo "all packages are there"
        return
    fi
    echo "installing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get -qq update >/dev/null || echo "apt-get update failed; going on with the lists there are"
    local log
    log=$(mktemp)
    if ! apt-get -qq -y --no-install-recommends install "${missing[@]}" >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        rm -f "$log"
        echo "apt-get could not install them (see above)" >&2
        return 1
    fi
    rm -f "$log"
}
