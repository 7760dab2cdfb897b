#!/usr/bin/env bash
# Installs the Debian packages the tree builds and tests with, when they are missing. Run as root.
set -euo pipefail

packages=(cmake g++ make libgtest-dev valgrind clang libclang-rt-14-dev time
          libjpeg62-turbo-dev libjpeg-turbo-progs imagemagick python3-pandas gnuplot-nox
          libx11-dev libxtst-dev libxrandr-dev libgl1-mesa-dev libglu1-mesa-dev
          libgl1-mesa-dri libepoxy-dev xvfb xdotool xauth x11-utils x11-xserver-utils mesa-utils
          libfreetype-dev fonts-dejavu-core xfonts-base)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
