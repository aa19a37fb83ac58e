#!/usr/bin/env bash
# Runs two ZolInfo binaries over the same models in all three modes and compares what they
# leave: standard output, standard error, exit status, output file and trace log. Only the
# peak memory figure, an exception's time and the line numbers of log and exception sites
# are normalised. Prints the differing runs and a count; exits 1 if any differ.
# Usage: scripts/compare-outputs.sh OLD_BINARY NEW_BINARY MODEL...
set -uo pipefail
old=$(realpath "$1") new=$(realpath "$2")
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Everything one run leaves, normalised, on standard output. Both binaries run in the same
# directory, whose path the log's announcement names.
run_one() {
    local binary=$1 model=$2 mode=$3 dir="$work/run"
    mkdir "$dir"
    local args=("$model")
    case $mode in
        dump) args=(--extract-data "$model" out.txt) ;;
        ekm) args=(--ekm-meta-data "$model") ;;
    esac
    (cd "$dir" && MORLANE_TEMP_PATH="$dir" "$binary" "${args[@]}" >stdout 2>stderr; echo "status $?" >status)
    for file in status stdout stderr out.txt ekm-meta-data.xml ZolInfo_trace.log; do
        [ -e "$dir/$file" ] || continue
        echo "== $file"
        sed -E -e 's/^(Peak Memory Usage: ).*/\1#/' -e 's/^( *Time : ).*/\1#/' \
            -e 's/^( *Line : )[0-9]+/\1#/' -e 's/^([A-Za-z]+ : )[0-9]+( @ )/\1#\2/' "$dir/$file"
    done
    rm -rf "$dir"
}

runs=0 differing=0
for model in "$@"; do
    model=$(realpath "$model")
    for mode in report dump ekm; do
        runs=$((runs + 1))
        run_one "$old" "$model" $mode >"$work/old"
        run_one "$new" "$model" $mode >"$work/new"
        if ! cmp -s "$work/old" "$work/new"; then
            differing=$((differing + 1))
            echo "differs: $mode $model"
        fi
    done
done
echo "compared $runs runs over $# models: $differing differ"
[ "$differing" -eq 0 ]
