#!/usr/bin/env bash
# Installs what building and testing need on a bare Debian 12, and nothing that is there already.
# Further package names may follow as arguments.
set -euo pipefail

packages=(
  cmake ninja-build g++ gcc binutils
  python3-dev python3-pytest python3-hypothesis
  "$@"
)

is_installed() {
  [[ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" == installed ]]
}

missing=()
for package in "${packages[@]}"; do
  is_installed "$package" || missing+=("$package")
done
if ((${#missing[@]} == 0)); then
  exit 0
fi

as_root=()
if ((EUID != 0)); then
  if ! command -v sudo >/dev/null; then
    echo "setup: not root, and these packages are missing: ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi
apt_get() {
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get --quiet "$@"
}
apt_get update
apt_get install --yes --no-install-recommends "${missing[@]}"
