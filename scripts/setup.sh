#!/usr/bin/env bash
# Installs the Debian packages the build needs, if any are missing.
set -euo pipefail
# One line per need, so that each part of the project names its own packages.
packages=(
    g++ cmake make libgtest-dev zlib1g-dev libdeflate-dev # the build and the C++ tests
    groff-base pkg-config dpkg-dev file                   # package tests, Debian packages
    python3-dev python3-numpy python3-pybind11 python3-pytest # zolfile, for /usr/bin/python3
    python3-pebble python3-tqdm parallel                  # catalogue: pool, progress, scale-out
    python3-meshio python3-h5py python3-netcdf4           # meshes: XDMF and Exodus writers
    python3-xarray python3-dask python3-distributed       # zolfile's xarray engine, clusters
    python3-venv python3-pip python3-setuptools python3-wheel # pip install into a venv
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
