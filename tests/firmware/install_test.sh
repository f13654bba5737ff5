#!/usr/bin/env bash
# A firmware build against the stand-in's vendor-sdk component, as an
# integrator makes it, and its install into a root tree:
#   install_test.sh SOURCE_DIR BUILD_DIR SANITIZE
# Leaves the SDK with liblog (BUILD_DIR/firmware/sdk-log) and the root tree
# (BUILD_DIR/firmware/root) for firmware_respawn_system_test.
set -euo pipefail
src=$1 build=$2 sanitize=$3
w=$build/firmware
fail() { echo "FAIL: $*" >&2; exit 1; }
configure() { cmake -S "$src" -B "$1" -DZN_PLATFORM=firmware -DCMAKE_PREFIX_PATH="$2" -DZN_SANITIZE="$sanitize" \
                    -DCMAKE_EXPORT_COMPILE_COMMANDS=ON 2>&1; }
rm -rf "$w"

cmake --install "$build" --component vendor-sdk --prefix "$w/sdk" >/dev/null
sdk=$(cd "$w/sdk" && find . -type f | sort | tr '\n' ' ')
for f in include/znsmsg.h include/znsutils.h include/libzn.h lib/libznsmsg.so lib/libznsutils.so lib/libzn.so; do
    [[ " $sdk " == *" ./$f "* ]] || fail "vendor-sdk lacks $f: $sdk"
done
[[ $sdk != *zn_event_agent* && $sdk != *znhosts* ]] || fail "the agent in vendor-sdk: $sdk"

# A file the SDK lacks, the line that must name it and where it was looked for.
rows=("include/libzn.h|libzn.h not found in include/ of CMAKE_PREFIX_PATH ($w/bad)"
      "lib/libznsmsg.so|libznsmsg.so not found in lib/ of CMAKE_PREFIX_PATH ($w/bad)")
for row in "${rows[@]}"; do
    rm -rf "$w/bad" "$w/bad-build" && cp -a "$w/sdk" "$w/bad" && rm "$w/bad/${row%%|*}"
    out=$(configure "$w/bad-build" "$w/bad") && fail "configured without ${row%%|*}"
    grep -qF -- "${row#*|}" <<< "$out" || fail "without ${row%%|*}: $out"
done

# An SDK with liblog and without libmdm: the agent links the one it has.
cp -a "$w/sdk" "$w/sdk-log"
cc -shared -Wl,-soname,liblog.so -o "$w/sdk-log/lib/liblog.so" -x c /dev/null
configure "$w/fw" "$w/sdk-log" >/dev/null
cmake --build "$w/fw" -j"$(nproc)" >/dev/null 2>&1
others=$(jq -r '.[].file' "$w/fw/compile_commands.json" | grep -v "^$src/src/" || true)
[ -z "$others" ] || fail "a firmware build compiled $others"
DESTDIR=$w/root cmake --install "$w/fw" --prefix /usr >/dev/null

tree=$(cd "$w/root" && find . ! -type d | sort | tr '\n' ' ')
[ "$tree" = "./etc/init.d/zn_event_agent ./usr/bin/znhosts ./usr/sbin/zn_event_agent " ] || fail "install tree: $tree"
agent=$w/root/usr/sbin/zn_event_agent
! readelf -d "$agent" "$w/root/usr/bin/znhosts" | grep -E 'RPATH|RUNPATH' || fail "installed with an RPATH"
needed=$(readelf -d "$agent" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' ')
for lib in $needed; do
    [[ $lib =~ ^(libc|ld-linux.*|libevent.*|libznsmsg|libznsutils|libzn|libiconv|liblog|libasan|libubsan)\.so ]] ||
        fail "the agent needs $lib: $needed"
done
[[ " $needed " == *" liblog.so "* ]] || fail "liblog of the SDK not linked: $needed"
strip -o "$w/agent.stripped" "$agent"
nm -D --defined-only "$w/agent.stripped" | grep -q ' V allow_direct_write_xmlShm$' ||
    fail "the stripped agent does not export allow_direct_write_xmlShm"
size=$(stat -c %s "$w/agent.stripped")
[ "$sanitize" = ON ] || [ "$size" -lt 153600 ] || fail "the stripped agent has $size bytes"

for script in "$src"/packaging/*.init "$src"/packaging/*.procd; do
    sh -n "$script" && shellcheck "$script" || fail "$script"
done
echo "firmware build and install tree as expected"
