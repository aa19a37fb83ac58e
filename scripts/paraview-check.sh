#!/usr/bin/env bash
# Exports the bundled example and a generated model to VTU with the zolfile package, opens
# both with ParaView's pvpython (checking point, cell and array counts) and renders the
# example to docs/wheel.png. Installs paraview and xvfb when missing (about 1.1 GB), so CI
# doesn't run it. Needs a build in build/ (scripts/test.sh or scripts/run-example.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh paraview xvfb
cmake --build build -j"$(nproc)" --target _zolfile zolfile_modules zolgen >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PYTHONPATH=$PWD/build/python
build/python/zolgen -o "$work/generated.zol" --nodes 2000 --elements 900 --results 2 \
    --components 3 --parts 2 --compressed >/dev/null
expectations=()
for model in examples/wheel.zol "$work/generated.zol"; do
    out="$work/$(basename "$model" .zol).vtu"
    /usr/bin/python3 -m zolfile convert "$model" "$out"
    # What the package made, to check ParaView's reading against.
    counts=$(/usr/bin/python3 -c 'import sys, zolfile
m = zolfile.open(sys.argv[1]); x = m.mesh(m.analyses()[0])
print(f"{len(x.points)}:{sum(len(b) for _, b in x.cells)}:{len(x.point_data)}")' "$model")
    expectations+=("$out:$counts")
done
mkdir -p docs
# pvpython's status can't be trusted: under Xvfb it may end on a GLX error after all is done.
xvfb-run -a -s "-screen 0 1024x768x24" pvpython scripts/paraview_check.py docs/wheel.png \
    "${expectations[@]}" 2>&1 | grep -v "^ \|^X Error" | tee "$work/paraview.log" || true
[ "$(grep -c ": as expected$" "$work/paraview.log")" -eq "${#expectations[@]}" ]
grep -q "^rendered " "$work/paraview.log"
