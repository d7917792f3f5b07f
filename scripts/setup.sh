#!/usr/bin/env bash
# Installs what a fresh Debian machine lacks to build, test and benchmark the
# module. Only missing packages are installed; nothing is downloaded otherwise.
set -euo pipefail

packages=(
  cmake make g++ pkg-config
  libprotobuf-dev libprotoc-dev protobuf-compiler
  libgtest-dev libgmock-dev libprotozero-dev
  clang libclang-rt-14-dev valgrind time
  dpkg-dev file
  libcli11-dev rapidjson-dev libfmt-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}" >&2
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
