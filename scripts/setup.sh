#!/usr/bin/env bash
# Installs the Debian packages the build needs, and the pinned Node packages of
# the OpenAPI check into build/node, only those that are missing. Quiet when
# everything is present; runs apt-get update only when it must install.
#
#   scripts/setup.sh            the Linux build, its tests, benchmarks and fuzzers
#   scripts/setup.sh windows    also the i686 mingw-w64 cross compilers and the
#                               source-package tools (libyaml is built from
#                               Debian's source package for that target)
#   scripts/setup.sh wine       Wine for 32-bit programs (wine32 needs the i386
#                               architecture). Exits 3 when it cannot be
#                               installed, after printing apt's reason on one
#                               line beginning with "setup: wine32:".
#   scripts/setup.sh wine64     64-bit Wine and the x86_64 cross compilers,
#                               where wine32 cannot be installed
set -euo pipefail

sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"

packages=(
  build-essential cmake ninja-build pkg-config
  rapidjson-dev libyaml-dev libgtest-dev libbenchmark-dev libmsgpack-dev libboost-dev
  clang libclang-rt-14-dev clang-format clang-tidy gcc-multilib g++-multilib
  chromium chromium-driver python3-selenium
)
for extra in "$@"; do
  case "$extra" in
    windows) packages+=(g++-mingw-w64-i686-posix gcc-mingw-w64-i686-posix binutils-mingw-w64-i686
                        mingw-w64-i686-dev dpkg-dev) ;;
    wine) packages+=(wine wine32:i386) ;;
    wine64) packages+=(wine64 g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix
                       binutils-mingw-w64-x86-64 mingw-w64-x86-64-dev) ;;
    *) echo "setup: unknown part '$extra' (windows, wine, wine64)" >&2; exit 2 ;;
  esac
done

installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}

# apt-get source needs a deb-src entry beside the binary ones.
has_deb_src() {
  grep -rqsE '^(Types:.*deb-src|deb-src )' /etc/apt/sources.list /etc/apt/sources.list.d/
}
add_deb_src() {
  local from=/etc/apt/sources.list.d/debian.sources
  if [ -f "$from" ]; then
    sed -E 's/^Types:.*/Types: deb-src/' "$from" | $sudo tee /etc/apt/sources.list.d/qel-deb-src.sources >/dev/null
  elif [ -f /etc/apt/sources.list ]; then
    grep -E '^deb ' /etc/apt/sources.list | sed 's/^deb /deb-src /' |
      $sudo tee /etc/apt/sources.list.d/qel-deb-src.list >/dev/null
  fi
}

missing=()
for p in "${packages[@]}"; do
  installed "$p" || missing+=("$p")
done
# Node runs the OpenAPI validator; Debian's only where the machine has none.
command -v npm >/dev/null 2>&1 || missing+=(nodejs npm)

# The independent validator of the host's OpenAPI document and the JSON Schema
# compiler its check uses, pinned, in a folder git ignores; installed when one
# is missing or at another version.
node_packages=("@seriousme/openapi-schema-validator@2.11.0" "ajv@8.20.0")
node_folder="$(cd "$(dirname "$0")/.." && pwd)/build/node"
install_node_packages() {
  command -v npm >/dev/null 2>&1 || { echo "setup: npm is missing; the OpenAPI check will be skipped"; return 0; }
  local p name version
  for p in "${node_packages[@]}"; do
    name="${p%@*}" version="${p##*@}"
    if ! grep -qs "\"version\": *\"$version\"" "$node_folder/node_modules/$name/package.json"; then
      echo "setup: installing ${node_packages[*]} into build/node"
      mkdir -p "$node_folder"
      npm install --prefix "$node_folder" --save-exact --no-audit --no-fund --loglevel=error \
        "${node_packages[@]}" >/dev/null ||
        echo "setup: npm install failed; the OpenAPI check will be skipped"
      return 0
    fi
  done
}
need_update=0
if [[ " $* " == *" windows "* ]] && ! has_deb_src; then
  add_deb_src
  need_update=1
fi
if [[ " $* " == *" wine "* ]] && ! dpkg --print-foreign-architectures | grep -qx i386; then
  $sudo dpkg --add-architecture i386
  need_update=1
fi
if [ ${#missing[@]} -eq 0 ] && [ $need_update -eq 0 ]; then
  install_node_packages
  exit 0
fi

# One index that fails (the i386 lists of a mirror have been seen out of step
# with their signed checksums) must not stop the packages the others offer.
echo "setup: installing ${missing[*]:-(package lists only)}"
$sudo apt-get update -qq >/tmp/qel-apt-update.log 2>&1 ||
  echo "setup: apt-get update: $(grep -m1 -E '^E:' /tmp/qel-apt-update.log || echo failed)"

base=() wine=()
for p in "${missing[@]}"; do
  case "$p" in wine|wine32:i386) wine+=("$p") ;; *) base+=("$p") ;; esac
done
if [ ${#base[@]} -gt 0 ]; then
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${base[@]}" >/dev/null
fi
install_node_packages
if [ ${#wine[@]} -gt 0 ]; then
  log=/tmp/qel-apt-wine.log
  if ! DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends \
       "${wine[@]}" >"$log" 2>&1; then
    # apt's own words: its first error line, or else its first line naming a
    # package it could not satisfy.
    reason=$(grep -m1 -E '^E:' "$log" || grep -m1 -iE 'depends|breaks|conflicts' "$log" || tail -n1 "$log")
    echo "setup: wine32: $(echo "$reason" | tr -s ' \t' ' ')"
    exit 3
  fi
fi
