#!/usr/bin/env bash
# Installs the Debian packages Brimstell builds and tests with, when any is missing.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config clang
  libplist-dev libexpat1-dev nlohmann-json3-dev libcurl4-openssl-dev libssl-dev libcli11-dev libfmt-dev libsystemd-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  dbus-daemon systemd trash-cli libglib2.0-bin gvfs time perl util-linux passwd smartmontools
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
((${#missing[@]})) || exit 0

echo "Installing: ${missing[*]}" >&2
sudo=()
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "Run as root, or install: ${missing[*]}" >&2; exit 1; }
  sudo=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
