#!/bin/sh
# Makes the archive that is sent to servers: the agent, the plug-in, the rsync
# program with stock rsync, and every library and the dynamic loader that they
# need, so that they run whatever C library the server has.
#
# Usage: make-bundle.sh OUTPUT-DIR QXAGENT PLUGIN RSYNC SHARE-DIR STRIP
#
# The same inputs give the same archive, byte for byte: names are sorted, times,
# owners and modes are fixed, and gzip stores no name.
set -eu

output=$1 agent=$2 plugin=$3 rsync=$4 share=$5 strip=$6
stock=/usr/bin/rsync
loader=ld-linux-x86-64.so.2

[ -x "$stock" ] || { echo "make-bundle: $stock is missing: install rsync" >&2; exit 1; }
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT

products=$tree/usr/local/share/qxlinmigrate
mkdir -p "$tree/bin" "$tree/lib" "$products"
cp "$agent" "$tree/bin/qxagent"
cp "$plugin" "$tree/lib/libqxlinmigrate.so"
cp "$rsync" "$products/rsync"
cp "$stock" "$products/rsync.stock"
cp "$share/distdetect-common.sh" "$products/"
cp "$share/guard.sh" "$tree/bin/"
"$strip" --strip-unneeded "$tree/bin/qxagent" "$tree/lib/libqxlinmigrate.so" "$products/rsync"

# "name => path (address)" lines name the libraries, a bare path the loader.
for program in "$agent" "$stock"; do
    ldd "$program" | while read -r name arrow path _; do
        case $name in
        */"$loader") cp -L "$name" "$tree/lib/$loader" ;;
        linux-vdso*) ;;
        *)  if [ "$arrow" != "=>" ] || [ ! -f "$path" ]; then
                echo "make-bundle: $program needs $name, which is not here" >&2
                exit 1
            fi
            cp -L "$path" "$tree/lib/$name" ;;
        esac
    done
done

find "$tree" -type d -exec chmod 0755 {} +
find "$tree" -type f -exec chmod 0755 {} +
mkdir -p "$output"
tar -C "$tree" --sort=name --mtime=@0 --owner=0 --group=0 --numeric-owner --format=gnu -cf - bin lib usr |
    gzip -n -9 >"$output/bundle.tar.gz.new"
# For people who ask what is sent.
{
    "$agent" --version
    "$stock" --version | sed -n 's/^rsync  *version \([^ ]*\).*/rsync \1/p'
} >"$output/bundle.versions"
sha256sum <"$output/bundle.tar.gz.new" | cut -d' ' -f1 >"$output/bundle.sha256"
mv "$output/bundle.tar.gz.new" "$output/bundle.tar.gz"
