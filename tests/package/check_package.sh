#!/usr/bin/env bash
# Installs the build into a temporary prefix, then builds and runs a consumer against it twice:
# through the CMake package and through pkg-config. Also checks that libkesta exports none of
# its own operator new/delete.
# Usage: check_package.sh BUILD_DIR SOURCE_DIR CXX "CXX_FLAGS"
set -euo pipefail
build=$1 src=$2 cxx=$3 flags=${4:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/prefix" >/dev/null
libdir=$(ls -d "$work"/prefix/lib*/ | head -n1)

if nm -D --defined-only "$libdir/libkesta.so" | grep -E ' _Z(nw|na|dl|da)' ; then
  echo "libkesta.so exports operator new/delete" >&2
  exit 1
fi

cmake -S "$src/tests/package/consumer" -B "$work/cmake-build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags" \
  -DCMAKE_EXE_LINKER_FLAGS="$flags" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
mkdir -p "$work/run1"
"$work/cmake-build/consumer" "$work/run1"

export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046,SC2086
"$cxx" -std=c++20 $flags "$src/tests/package/consumer/main.cpp" -o "$work/pc-consumer" \
  $(pkg-config --cflags --libs kesta) -Wl,-rpath,"$libdir"
mkdir -p "$work/run2"
"$work/pc-consumer" "$work/run2"
