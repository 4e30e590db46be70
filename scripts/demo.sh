#!/usr/bin/env bash
# The demo a newcomer runs: installs what is missing, builds, makes a throw-away sandbox
# root with the default configuration, and tours the library with zmctl. Everything it
# starts or mounts is undone on exit, also when interrupted.
#   scripts/demo.sh          with the real media engine on GStreamer (test-pattern inputs)
#   scripts/demo.sh --sim    with the simulated engine
set -euo pipefail
cd "$(dirname "$0")/.."
repo=$PWD
engine=real
for arg in "$@"; do
  case "$arg" in
    --sim) engine=sim ;;
    *) echo "usage: $0 [--sim]" >&2; exit 2 ;;
  esac
done

bash scripts/setup.sh
cmake -S . -B build >/dev/null
targets=(zmctl zolo-media-sim gen_layout_image zolo-media-gateway)
[ "$engine" = real ] && targets+=(zolo-media-engine)
cmake --build build -j"$(nproc)" --target "${targets[@]}" >/dev/null

root=$(mktemp -d /tmp/zolo-demo-XXXXXX)
mounted=""
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  [ -f "$root/engine.log" ] && cp "$root/engine.log" /tmp/zolo-demo-engine.log
  if [ -n "$mounted" ]; then umount "$mounted" 2>/dev/null || umount -l "$mounted" || true; fi
  rm -rf "$root"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

bash scripts/appliance-root.sh "$root" build
if [ "$(id -u)" -eq 0 ] && mount -t tmpfs -o size=256m tmpfs "$root/media/SD" 2>/dev/null; then
  mounted="$root/media/SD"
fi

# A private message bus with the engine on it.
sed "s|@SOCKET@|$root/bus.socket|" data/dbus/private-bus.conf.in >"$root/bus.conf"
dbus-daemon --config-file="$root/bus.conf" --nofork --nopidfile &
pids+=($!)
export DBUS_SYSTEM_BUS_ADDRESS="unix:path=$root/bus.socket"
for _ in $(seq 100); do [ -S "$root/bus.socket" ] && break; sleep 0.05; done
if [ "$engine" = real ]; then
  # Small pictures keep two cores free for the rest of the tour.
  OVIK_LOG_SYSLOG=0 OVIK_LOG_STDERR=1 build/engine/gst/zolo-media-engine --sandbox "$root" \
      --database "$root/var/lib/zolo/media.db" --initial-sql data/initial.sql \
      --width 640 --height 360 --fps 15 \
      >"$root/engine.out" 2>"$root/engine.log" &
else
  build/engine/sim/zolo-media-sim --sandbox "$root" \
      --database "$root/var/lib/zolo/media.db" >/dev/null &
fi
pids+=($!)

zmctl() { "$repo/build/tools/zmctl/zmctl" --sandbox "$root" "$@"; }
for _ in $(seq 100); do zmctl state >/dev/null 2>&1 && break; sleep 0.05; done
step() { printf '\n== %s\n' "$*"; }

echo "sandbox root: $root"
step "configuration (/etc/media.conf)"
zmctl config get Application database
zmctl config get Engine min_avail_recording_time
step "device"
zmctl device
zmctl fwenv movie_resource
step "storage devices"
zmctl storage list
[ -n "$mounted" ] || echo "(no storage mounted: mounting a tmpfs needs root)"
step "a snapshot: colour bars to JPEG"
zmctl testframe "$root/var/lib/zolo/media/images/bars.yuv" --width 1280 --height 720
zmctl jpeg "$root/var/lib/zolo/media/images/bars.yuv" "$root/var/lib/zolo/media/images/bars.jpg" \
      --width 1280 --height 720 --quality 90
step "the media engine ($([ "$engine" = real ] && echo "GStreamer" || echo "simulated"), on a private bus)"
[ "$engine" = real ] && cat "$root/engine.out"
zmctl state
zmctl setting get storage
zmctl setting set backup 1
zmctl setting get backup
zmctl service restart
step "two seconds of live signals"
zmctl signals watch audio_level --count 9 --seconds 2
step "the configured recording files and network outputs"
zmctl stream list --type file
zmctl stream list --type network
step "a recording: start, pause, resume, stop, with the engine's signals as they arrive"
# The binary itself, not the shell function, so that the pid below is the watcher's own.
"$repo/build/tools/zmctl/zmctl" --sandbox "$root" signals watch streaming_state stream_status \
    streaming_duration recording_created bookmark_added recording_ready --seconds 8 &
watcher=$!
pids+=("$watcher")
sleep 0.5
zmctl record start --file movie1=demo_take
sleep 2.5
zmctl record pause
zmctl state
zmctl record resume
sleep 0.6
zmctl bookmark add --text "Opening shot"
zmctl bookmark add --still --width 640 --height 360 --text "Guest arrives"
sleep 0.6
zmctl status
zmctl record stop
wait "$watcher" || true
step "what the engine wrote for the new recording"
(cd "$root/var/lib/zolo/recordings" && find . -type f ! -name 'recording.db*' | sort)
step "the new recording as the library lists it: videos, bookmarks, the one nearest 2 s"
zmctl recording list
rec=$(zmctl --json recording list --count 1 | sed -n 's/.*"id":[[:space:]]*\([0-9]*\).*/\1/p' | head -1)
zmctl recording show "$rec"
zmctl bookmark search "$rec" --time 2000
step "a snapshot taken on request, with its image"
zmctl snapshot take --width 640 --height 360
zmctl snapshot list
zmctl image list "$(zmctl --json snapshot list --count 1 | sed -n 's/.*"id":[[:space:]]*\([0-9]*\).*/\1/p' | head -1)"
step "the inputs with their front-panel names, one connected, a channel snapshot"
zmctl source list
zmctl channel list
zmctl channel connect 1 1
zmctl channel snapshot 1 file:///var/lib/zolo/media/images/channel1.jpg --width 640 --height 360
file "$root/var/lib/zolo/media/images/channel1.jpg" 2>/dev/null ||
    ls -l "$root/var/lib/zolo/media/images/channel1.jpg"
step "audio ports with live levels, a volume change, presets and storage information"
zmctl audio inputs
zmctl audio outputs
"$repo/build/tools/zmctl/zmctl" --sandbox "$root" signals watch audio_volume --count 1 --seconds 5 &
watcher=$!
pids+=("$watcher")
sleep 0.5
zmctl audio set-input xlr-in1 --volume 55
wait "$watcher" || true
zmctl audio inputs xlr-in1
zmctl preset list
# The NDI stream uses "My Event 1080p": at 60 frames its preview profile follows at 30.
zmctl preset set 6 --video-param '{"width":1920,"height":1080,"frame_rate":60,"bitrate":10000,"gop":60}'
zmctl preset list --id 4
zmctl storage info
step "layouts: the list, a new picture-in-picture layout and its rendered preview"
zmctl layout list --record
pip=$(zmctl --json layout add 0,0,1,1,0,0,1 0.65,0.65,0.3,0.3,1,0,2 | sed -n 's/.*"id":[[:space:]]*\([0-9]*\).*/\1/p')
zmctl layout show "$pip"
zmctl layout render "$pip"
step "themes: add one with the new layout, then remove it"
theme=$(zmctl --json theme add --name "Interview" --layout "$pip" --background 3 --overlay 33 |
        sed -n 's/.*"id":[[:space:]]*\([0-9]*\).*/\1/p')
zmctl theme list
zmctl theme remove "$theme"
zmctl asset list background
step "the mixer live: the new layout on air, a mixer snapshot, playback of the recording"
"$repo/build/tools/zmctl/zmctl" --sandbox "$root" signals watch video_layout --count 1 --seconds 5 &
watcher=$!
pids+=("$watcher")
sleep 0.5
zmctl mixer layout "$pip" main --persist
wait "$watcher" || true
zmctl mixer show main
zmctl color get
sleep 0.3
zmctl mixer snapshot file:///var/lib/zolo/media/images/mixer.jpg --width 640 --height 360
file "$root/var/lib/zolo/media/images/mixer.jpg" 2>/dev/null ||
    ls -l "$root/var/lib/zolo/media/images/mixer.jpg"
if [ "$engine" = real ]; then
  cp "$root/var/lib/zolo/media/images/mixer.jpg" /tmp/zolo-demo-mixer.jpg
  echo "the program as mixed: /tmp/zolo-demo-mixer.jpg (kept after the demo)"
  echo "inputs without a source show the \"no signal\" slate, retried with backoff:"
  grep -m 3 'showing the slate\|refused source\|unsupported source' "$root/engine.log" | sed 's/^/  /' || true
fi
take=$(cd "$root" && find var/lib/zolo/recordings -type f -name '*.mp4' | sort | head -n 1)
zmctl playback start "/$take"
zmctl playback state
zmctl playback seek 1
zmctl playback pause
zmctl playback state
zmctl playback stop
zmctl playback state
step "the gateway: the library over WebSocket, with a password"
hash=$(echo "demo-password" | build/tools/zolo-media-gateway/zolo-media-gateway --hash-password)
sed -i "s|^password_hash=.*|$hash|" "$root/etc/media.conf"
if [ -d www ]; then mkdir -p "$root/usr/share/zolo-media-gateway" && cp -r www "$root/usr/share/zolo-media-gateway/"; fi
ZOLO_SYSROOT="$root" OVIK_LOG_SYSLOG=0 build/tools/zolo-media-gateway/zolo-media-gateway --port 0 \
    >"$root/gateway.out" 2>"$root/gateway.log" &
pids+=($!)
for _ in $(seq 100); do grep -q "listening" "$root/gateway.out" 2>/dev/null && break; sleep 0.05; done
port=$(sed -n 's/.* port \([0-9]*\).*/\1/p' "$root/gateway.out")
echo "gateway on 127.0.0.1:$port (ws://127.0.0.1:$port/ws, http://127.0.0.1:$port/healthz)"
python3 scripts/gateway_demo_client.py "$port" demo-password "$pip"
echo "console: http://127.0.0.1:$port/ in a browser on this machine (password: demo-password)"
echo "health: $(python3 -c "import urllib.request,sys; print(urllib.request.urlopen('http://127.0.0.1:$port/healthz').read().decode().strip())")"
python3 -c "import urllib.request; print(''.join(l for l in urllib.request.urlopen('http://127.0.0.1:$port/metrics').read().decode().splitlines(True) if l.startswith('zolo_gateway_requests_total')), end='')"
step "a refused call: an unknown setting"
zmctl setting set no_such_setting 1 || echo "(exit status $?)"
step "the same as JSON, for scripts"
zmctl --json state
zmctl --json storage list
echo
if [ -t 0 ]; then
  read -r -p "The console stays at http://127.0.0.1:$port/ until you press Enter. " _ || true
fi
echo "demo finished; the sandbox is removed on exit"
