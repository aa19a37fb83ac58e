#!/usr/bin/env bash
# Converts the bundled example, the cast wheel (one analysis to VTU, the transient one as an
# XDMF time series) and a generated model with the zolfile package, opens each with
# ParaView's pvpython, checks the points, cells, VTK cell types, arrays and time steps it
# loads, and renders docs/wheel.png, docs/cast-wheel-static.png and
# docs/cast-wheel-transient.png. Installs paraview and xvfb when missing (about 1.1 GB), so
# CI doesn't run it. Needs a build in build/ (scripts/test.sh or scripts/run-example.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh paraview xvfb
cmake --build build -j2 --target _zolfile zolfile_modules zolgen >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PYTHONPATH=$PWD/build/python
build/python/zolgen -o "$work/generated.zol" --nodes 2000 --elements 900 --results 2 \
    --components 3 --parts 2 --compressed >/dev/null
/usr/bin/python3 scripts/paraview_prepare.py "$work" "$work/generated.zol" >"$work/checks.json"
checks=$(grep -c '"path"' "$work/checks.json")
pictures=$(grep -c '"png"' "$work/checks.json")
mkdir -p docs
# pvpython's status can't be trusted: under Xvfb it may end on a GLX error after all is done.
xvfb-run -a -s "-screen 0 1024x768x24" pvpython scripts/paraview_check.py "$work/checks.json" \
    2>&1 | grep -v "^ \|^X Error\|^$" | tee "$work/paraview.log" || true
[ "$(grep -c ": as expected$" "$work/paraview.log")" -eq $((checks - pictures)) ]
[ "$(grep -c "^rendered " "$work/paraview.log")" -eq "$pictures" ]
