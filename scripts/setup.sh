#!/usr/bin/env bash
# Installs the Debian packages the build needs, if any are missing.
set -euo pipefail
# The zolfile Python package needs the python3-* packages, for Debian's /usr/bin/python3;
# the catalogue's progress bar needs tqdm and its scale-out test GNU parallel; the package
# tests need pkg-config and groff; the xarray engine xarray, Dask and distributed; pip's
# install into a venv venv, pip, setuptools and wheel.
packages=(g++ cmake make libgtest-dev zlib1g-dev libdeflate-dev groff-base pkg-config
    python3-dev python3-numpy python3-pybind11 python3-pytest python3-meshio python3-tqdm parallel
    python3-xarray python3-dask python3-distributed python3-venv python3-pip python3-setuptools
    python3-wheel
    "$@")
missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" ||
        missing+=("$package")
done
if ((${#missing[@]})); then
    echo "Installing: ${missing[*]}"
    sudo=""
    [ "$(id -u)" -ne 0 ] && sudo=sudo
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi
