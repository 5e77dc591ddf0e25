#!/usr/bin/env bash
# SPDX-License-Identifier: LicenseRef-qxkernel
# Draws the pictures of docs/pages/interpolation.md with the program evaluate. usage: make_interpolation.sh [BUILD_DIR]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
evaluate=${1:-$here/../../build/release}/examples/evaluate
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf 'x,y\n0,0\n1,0.2\n2,0.4\n3,2.6\n4,3\n6,3\n7,2\n' > "$work/t.csv"
{ echo x; seq -f %.3f -1.5 0.02 8.5; } | sed 's/,/./' > "$work/x.csv"
tables=()
for method in neighbor linear piecewisecubic cubicspline; do
  tables+=(--table "$method=$work/t.csv,$method")
done
"$evaluate" "$work/x.csv" "${tables[@]}" "neighbor(x)" "linear(x)" "piecewisecubic(x)" "cubicspline(x)" --gradient x --summary \
  --title "One table, four methods" --curve "$here/interpolation_methods.svg" > /dev/null 2>&1
"$evaluate" "$work/x.csv" --table "clamped=$work/t.csv,cubicspline,clamp" --table "constant=$work/t.csv,cubicspline,value=-1" \
  --table "line=$work/t.csv,cubicspline,linear" --table "polynomial=$work/t.csv,cubicspline,polynomial" \
  "clamped(x)" "constant(x)" "line(x)" "polynomial(x)" --gradient x --summary \
  --title "One spline, four rules outside" --curve "$here/interpolation_outside.svg" > /dev/null 2>&1
