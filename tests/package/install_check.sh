#!/usr/bin/env bash
# Installs the build tree into a fresh prefix and builds the examples against it the ways the
# installed files promise: the C example with find_package(VelkAppleHealth) and with pkg-config,
# the C++ example with find_package. Every program must print the three documents of the sample
# day.
# Usage: install_check.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
build="$1"
source="$2"
python="${3:-}"
prefix="$(mktemp -d)"
trap 'rm -rf "$prefix"' EXIT
sample=("$source/data/sample/watch5-2020/export.xml" Africa/Johannesburg 2020-04-13)

expect_documents() {
  local output
  output="$("$@")"
  for kind in sleep_health physical_health body_health; do
    grep -q "\"data_structure\":\"$kind\"" <<<"$output" || {
      echo "install_check: $1 printed no $kind document" >&2
      exit 1
    }
  done
}

cmake --install "$build" --prefix "$prefix/usr" >/dev/null

cmake -S "$source/tests/package/consumer" -B "$prefix/consumer" -G Ninja \
  -DCMAKE_PREFIX_PATH="$prefix/usr" -DVELK_EXAMPLES_DIR="$source/examples" >/dev/null
cmake --build "$prefix/consumer" >/dev/null
expect_documents "$prefix/consumer/print_day" "${sample[@]}"
expect_documents "$prefix/consumer/print_day_cpp" "${sample[@]}"

pc_file="$(find "$prefix/usr" -name velk.pc)"
export PKG_CONFIG_PATH="$(dirname "$pc_file")"
# shellcheck disable=SC2046
cc -std=c11 -o "$prefix/print_day_pc" "$source/examples/print_day.c" $(pkg-config --cflags --libs velk)
LD_LIBRARY_PATH="$(pkg-config --variable=libdir velk)" expect_documents "$prefix/print_day_pc" "${sample[@]}"

if [[ -n "$python" ]]; then
  # Where that Python looks under the prefix; the module finds libvelk++ relative to itself.
  site="$(find "$prefix/usr" -path '*-packages/velk' -type d)"
  PYTHONPATH="$(dirname "$site")" expect_documents "$python" -c '
import json, sys, velk
with velk.Device(export=sys.argv[1], tz=sys.argv[2], state=sys.argv[4]) as device:
    for kind in ("sleep", "physical", "body"):
        print(json.dumps(device.summary(kind, sys.argv[3]), separators=(",", ":")))
' "${sample[@]}" "$prefix/state.sqlite"
fi
echo "install_check: the C and C++ examples (and the Python package) work from the installed package"
