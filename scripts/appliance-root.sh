#!/usr/bin/env bash
# Lays out a fresh appliance below a sandbox root: the default configuration and database
# SQL, device facts, the firmware environment, the layout renderer where the library runs it
# and the pictures the default mixer assets name.
#   scripts/appliance-root.sh ROOT BUILD_DIR
set -euo pipefail
cd "$(dirname "$0")/.."
root=$1
build=$2
# A fresh appliance below the sandbox root.
mkdir -p "$root/etc" "$root/media/SD" "$root/usr/share/media" "$root/var/lib/zolo/media/images" \
         "$root/sys/class/net/eth0"
cp data/media.conf "$root/etc/media.conf"
cp data/initial.sql "$root/usr/share/media/initial.sql"
echo "studio-demo" >"$root/etc/hostname"
echo "Demo recorder in a sandbox" >"$root/etc/description"
echo "02:00:5e:10:20:30" >"$root/sys/class/net/eth0/address"
bash scripts/make-fw-env.sh "$root" movie_resource=1 >/dev/null
# The layout renderer where the library runs it, and the pictures the default mixer assets
# name (drawn by the renderer: one full-picture window each).
cp "$build"/tools/gen_layout_image/gen_layout_image "$root/usr/share/media/gen_layout_image"
picture() {
  mkdir -p "$(dirname "$root$2")"
  "$build"/tools/gen_layout_image/gen_layout_image -f "$root$2" \
    -c "{\"layout\":[{\"id\":$1,\"x\":0,\"y\":0,\"z\":0,\"w\":1,\"h\":1}]}"
}
assets=/var/lib/zolo/media/assets
picture 0 $assets/background/black.png
picture 1 $assets/background/grey.png
picture 2 $assets/background/blue.png
for n in 1 2 3; do picture $((10 + n)) $assets/foreground/intermission_$n.png; done
picture 20 $assets/overlay/logo.png
echo '<svg xmlns="http://www.w3.org/2000/svg" width="64" height="64"/>' >"$root$assets/overlay/logo.svg"
picture 30 /usr/share/media/overlay/recording_indicator.png
picture 31 /usr/share/media/overlay/clock.png
