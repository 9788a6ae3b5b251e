#!/usr/bin/env bash
# Fails when a file under sources/ includes "kelt/LAYER/..." of a layer above its
# own: math 0, core 1, engine 2, elements, laws and discrete 3, fem 4, io 5. The
# umbrella sources/fem.h counts as fem, sources/io.h as io. Prints each offending
# file and include.
set -euo pipefail
cd "$(dirname "$0")/.."

rank() {
    case "$1" in
    math) echo 0 ;;
    core) echo 1 ;;
    engine) echo 2 ;;
    elements | laws | discrete) echo 3 ;;
    fem) echo 4 ;;
    io) echo 5 ;;
    *) echo -1 ;;
    esac
}

status=0
while IFS= read -r -d '' file; do
    rel=${file#sources/}
    if [[ $rel == */* ]]; then layer=${rel%%/*}; else layer=${rel%.h}; fi
    own=$(rank "$layer")
    if ((own < 0)); then
        echo "$file: not in a known layer"
        status=1
        continue
    fi
    while IFS= read -r line; do
        path=$(sed -E 's/.*[<"]kelt\/([^">]+)[">].*/\1/' <<<"$line")
        if [[ $path == */* ]]; then target=${path%%/*}; else target=${path%.h}; fi
        if (($(rank "$target") > own)); then
            echo "$file: $line"
            status=1
        fi
    done < <(grep -E '^[[:space:]]*#[[:space:]]*include[[:space:]]*[<"]kelt/' "$file" || true)
done < <(find sources -type f \( -name '*.h' -o -name '*.cpp' \) -print0 | sort -z)

if ((status == 0)); then echo "layers: every include points down or sideways"; fi
exit $status
