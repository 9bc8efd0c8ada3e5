#!/usr/bin/env bash
# Installs every Debian package that building, running and testing TalvoPlayer
# needs.  Only what is missing is installed, so a second run costs a dpkg query.
set -euo pipefail

packages=(
  # build
  cmake ninja-build g++ pkg-config clang clang-format libclang-rt-14-dev
  # libraries
  qt6-base-dev qt6-base-dev-tools libgl-dev qt6-qpa-plugins
  libsqlite3-dev libmpg123-dev libopus-dev libmp3lame-dev
  libsndfile1-dev libsamplerate0-dev libasound2-dev libasound2-plugins libsonic-dev
  # listeners' own books: every input format through FFmpeg's libraries
  libavformat-dev libavcodec-dev libswresample-dev libavutil-dev
  # tests and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev
  # headless runs: X server, input events, screenshots, fonts
  xvfb xauth xdotool x11-xserver-utils x11-apps x11-utils imagemagick fonts-dejavu-core
  # demo library and audio checks
  espeak-ng sox
  # test books (M4B with chapters, ID3 and Vorbis chapters) and the import benchmark's baseline
  ffmpeg
  # skin artwork
  librsvg2-bin
  # what a screen reader sees (make accessibility)
  python3-pyatspi at-spi2-core
  # sound-server and D-Bus peers for integration tests
  pulseaudio pulseaudio-utils dbus dbus-x11 python3-dbusmock python3-dbus python3-gi
  # screen power through an X server's DPMS
  libx11-dev libxext-dev
  # a real install: the desktop entry checked, the mime database compiled
  desktop-file-utils shared-mime-info
  # man pages from --help; Wayland: Qt's platform plugin and a headless compositor for its test
  help2man qt6-wayland weston
  # MPRIS client for the media-player tests
  playerctl
  # line and branch coverage (make coverage)
  gcovr
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
if [ "$(id -u)" -eq 0 ]; then
  as_root=()
elif command -v sudo >/dev/null 2>&1 && sudo -n true 2>/dev/null; then
  as_root=(sudo)
else
  echo "error: these Debian packages are missing and I cannot install them" >&2
  echo "(not running as root, and sudo is not available without a password):" >&2
  echo "  ${missing[*]}" >&2
  echo "Install them as root with: apt-get install ${missing[*]}" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
