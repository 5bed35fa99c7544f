#!/usr/bin/env bash
# Builds the packages again, in another folder and without a cache of objects, and compares them byte
# for byte: `tests/packages/reproducible_test.sh PACKAGES`, the folder that script/package has filled.
set -euo pipefail
packages=$(realpath "${1:?usage: reproducible_test.sh PACKAGES}")
cd "$(dirname "$0")/../.."

other=$(mktemp -d)
trap 'rm -rf "$other"' EXIT
# What is committed and what is not yet, as it is here.
git ls-files --cached --others --exclude-standard -z |
    tar --create --null --files-from - | tar --extract --directory "$other"
cd "$other"
CCACHE_DISABLE=1 TZ=Pacific/Kiritimati LC_ALL=C script/package >"$other/log" 2>&1 ||
    { tail -50 "$other/log" >&2; exit 1; }

failed=0
for package in "$packages"/*.deb; do
    again=$other/build/release/packages/$(basename "$package")
    cmp "$package" "$again" || failed=1
done
[ "$(ls "$packages")" = "$(ls "$other/build/release/packages")" ] || {
    echo "other packages: $(ls "$other/build/release/packages")" >&2
    failed=1
}
[ $failed -eq 0 ] && echo "$(ls "$packages" | wc -l) packages are the same, byte for byte"
exit $failed
