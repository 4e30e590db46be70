#!/usr/bin/env bash
# Builds the Debian packages from a copy of the tree, checks them (lintian, contents),
# installs them on this machine and uses them: the consumer built with pkg-config and with
# CMake, zmctl and its manual page and completion, the simulated engine's unit.
#   scripts/package.sh            packages land in build-deb/
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$PWD
bash scripts/setup.sh scripts/packages.txt scripts/packages-deb.txt
out=$repo/build-deb
rm -rf "$out"
mkdir -p "$out/src"
tar --exclude='./build*' --exclude=./.git -cf - . | tar -xf - -C "$out/src"
(cd "$out/src" && DEB_BUILD_OPTIONS="parallel=$(nproc) nocheck" dpkg-buildpackage -b -us -uc \
    >"$out/build.log" 2>&1) || { tail -n 40 "$out/build.log"; exit 1; }
ls "$out"/*.deb
echo "== lintian"
lintian --fail-on error --suppress-tags-from-file debian/lintian-kept "$out"/*.changes
echo "== contents"
bash tests/packaging/check_contents.sh "$out"
echo "== install"
DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    $(ls "$out"/*.deb | grep -v dbgsym) >/dev/null
bash tests/install/check_install.sh --system "$repo"
/usr/bin/zmctl --help >/dev/null
/usr/bin/zmctl --version
warnings=$(MANWIDTH=80 man --warnings -l /usr/share/man/man1/zmctl.1.gz 2>&1 >/dev/null)
[ -z "$warnings" ] || { echo "man page warnings: $warnings"; exit 1; }
completions=$(bash -c 'source /usr/share/bash-completion/completions/zmctl
  COMP_WORDS=(zmctl stream ""); COMP_CWORD=2; _zmctl; echo "${COMPREPLY[*]}"')
[[ " $completions " == *" list "* ]] || { echo "completion gave: $completions"; exit 1; }
systemd-analyze verify /lib/systemd/system/zolo-media-sim.service
systemd-analyze verify /lib/systemd/system/zolo-media-gateway.service
systemd-analyze verify /lib/systemd/system/zolo-media-engine.service
/usr/bin/zolo-media-engine --help >/dev/null
warnings=$(MANWIDTH=80 man --warnings -l /usr/share/man/man1/zolo-media-engine.1.gz 2>&1 >/dev/null)
[ -z "$warnings" ] || { echo "engine man page warnings: $warnings"; exit 1; }
/usr/bin/zolo-media-gateway --version
warnings=$(MANWIDTH=80 man --warnings -l /usr/share/man/man8/zolo-media-gateway.8.gz 2>&1 >/dev/null)
[ -z "$warnings" ] || { echo "gateway man page warnings: $warnings"; exit 1; }
grep -q '`get_state`' /usr/share/doc/zolo-media-gateway/gateway-protocol.md* ||
    zgrep -q '`get_state`' /usr/share/doc/zolo-media-gateway/gateway-protocol.md*
echo "packages built, checked and installed"
