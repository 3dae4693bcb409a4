#!/bin/sh
# Prints the distribution this system runs, as NAME-VERSION in lower case:
# debian-12, ubuntu-22.04, redhat-9, sles-15. A distribution without releases
# (arch), or a release that has no number yet (Debian's testing), is its NAME
# alone. The version is as long as it takes to tell one release from the next:
# 7.9.2009 of CentOS is 7, as its point releases are updates of one system.
#
# Prints nothing and exits with 1 when the distribution is not known.
#
# It runs on servers of all ages, so it uses no more than a POSIX shell has
# built in.

LC_ALL=C # or some shells count capitals among [a-z]
export LC_ALL

# known NAME VERSION: prints them and ends the script.
known() {
    case $1 in
    "" | *[!a-z0-9._-]*) exit 1 ;;
    esac
    case $2 in
    "" | [!0-9]* | *[!A-Za-z0-9._]*) echo "$1" ;;
    *) echo "$1-$2" ;;
    esac
    exit 0
}

# Sets `first` to the first line of a file that is not empty; fails if there is
# none.
first_line() {
    first=
    [ -r "$1" ] || return 1
    while read -r first || [ -n "$first" ]; do
        [ -n "$first" ] && return 0
    done <"$1"
    return 1
}

# Sets `value` to what a file of NAME=VALUE lines gives a name, without quotes;
# empty if it gives nothing.
value_of() {
    value=
    while IFS= read -r line || [ -n "$line" ]; do
        case $line in
        "$2="*) value=${line#*=} ;;
        esac
    done <"$1"
    value=${value%"${value##*[![:space:]]}"}
    case $value in
    \"*\" | \'*\')
        value=${value#?}
        value=${value%?}
        ;;
    esac
}

# Sets `number` to the first number with dots in a text, such as 7.9.2009.
number_in() {
    number=${1#"${1%%[0-9]*}"}
    number=${number%%[!0-9.]*}
    number=${number%.}
}

# Set `short` to a number's first part, or its first two.
major() { short=${1%%.*}; }
major_minor() {
    short=${1#*.}
    case $1 in
    *.*) short=${1%%.*}.${short%%.*} ;;
    *) short=$1 ;;
    esac
}

# Debian 3.0 and 3.1 were releases of their own; since 4, the first part says it.
debian() {
    case $1 in
    [0-3].*) known debian "$1" ;;
    esac
    major "$1"
    known debian "$short"
}

from_os_release() {
    value_of "$1" ID
    id=$value
    value_of "$1" VERSION_ID
    version=$value
    major "$version"
    case $id in
    "") return ;;
    debian) debian "$version" ;;
    rhel) known redhat "$short" ;;
    ol) known oracle "$short" ;;
    amzn) known amazon "$short" ;;
    centos | rocky | almalinux | scientific | sles | sled) known "$id" "$short" ;;
    sles_sap) known sles "$short" ;;
    opensuse | opensuse-leap) known opensuse "$version" ;;
    opensuse-tumbleweed | arch | gentoo) known "$id" "" ;;
    alpine)
        major_minor "$version"
        known alpine "$short"
        ;;
    *) known "$id" "$version" ;;
    esac
}

from_lsb_release() {
    value_of "$1" DISTRIB_ID
    id=$value
    value_of "$1" DISTRIB_RELEASE
    case $id in
    Ubuntu) known ubuntu "$value" ;;
    Debian) debian "$value" ;;
    LinuxMint) known linuxmint "$value" ;;
    Arch) known arch "" ;;
    esac
}

# The one line of redhat-release and of its derivatives' files.
from_redhat_release() {
    number_in "${1##*release}"
    major "$number"
    case $1 in
    "Red Hat Linux"*) known redhat "$number" ;;
    "Red Hat"*) known redhat "$short" ;;
    CentOS*) known centos "$short" ;;
    Fedora*) known fedora "$number" ;;
    Rocky*) known rocky "$short" ;;
    AlmaLinux*) known almalinux "$short" ;;
    Oracle* | "Enterprise Linux"*) known oracle "$short" ;;
    Scientific*) known scientific "$short" ;;
    esac
}

from_suse_release() {
    number_in "$1"
    major "$number"
    case $1 in
    *[Ee]nterprise\ [Dd]esktop* | *ENTERPRISE\ DESKTOP*) known sled "$short" ;;
    *[Ee]nterprise* | *ENTERPRISE*) known sles "$short" ;;
    openSUSE*) known opensuse "$number" ;;
    S[Uu]SE*) known suse "$number" ;;
    esac
}

for file in /etc/os-release /usr/lib/os-release; do
    [ -r "$file" ] && from_os_release "$file"
done

# Before os-release each family had a file of its own; derivatives kept their
# parent's beside it, so the more particular files come first.
[ -r /etc/lsb-release ] && from_lsb_release /etc/lsb-release
for file in oracle-release enterprise-release centos-release fedora-release redhat-release; do
    first_line "/etc/$file" && from_redhat_release "$first"
done
first_line /etc/SuSE-release && from_suse_release "$first"
if first_line /etc/alpine-release; then
    major_minor "$first"
    known alpine "$short"
fi
if first_line /etc/slackware-version; then
    number_in "$first"
    known slackware "$number"
fi
[ -e /etc/arch-release ] && known arch ""
[ -e /etc/gentoo-release ] && known gentoo ""
if first_line /etc/debian_version; then
    number_in "$first"
    debian "$number"
fi
exit 1
