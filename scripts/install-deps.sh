#!/usr/bin/env bash
# Installs the Debian packages the build, the demo and the tests need.
# Idempotent: packages already installed are not touched.
set -euo pipefail
pkgs=(
  build-essential cmake pkg-config
  liballegro4-dev libfreetype-dev libfontconfig-dev fonts-liberation
  libx11-dev libxext-dev libxtst-dev libxrandr-dev libdrm-dev
  libxcb-present-dev libxcb-xfixes0-dev libx11-xcb-dev libasound2-dev
  libgtest-dev libgmock-dev
  libieee1284-3-dev libserialport-dev
  libemf2svg-dev librsvg2-dev libemf-dev
  xvfb xauth xdotool x11-utils alsa-utils sox
  pulseaudio pulseaudio-utils libasound2-plugins
  clang libclang-rt-14-dev
)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "installing: ${missing[*]}"
SUDO=""
[ "$(id -u)" -ne 0 ] && SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
