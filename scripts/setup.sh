#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
# Quiet when everything is present; runs apt-get update only when it must install.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  rapidjson-dev libyaml-dev libgtest-dev libbenchmark-dev libmsgpack-dev libboost-dev
  clang libclang-rt-14-dev clang-format gcc-multilib g++-multilib
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
