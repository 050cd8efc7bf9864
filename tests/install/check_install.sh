#!/bin/sh
# Installs kwil from the build tree into a scratch prefix, then builds and runs a small host
# against it twice: once with find_package(kwil), once with pkg-config.
set -eu
build="$1"; src="$2"
tmp=$(mktemp -d); trap 'rm -rf "$tmp"' EXIT
cmake --install "$build" --prefix "$tmp/prefix" >/dev/null
mkdir "$tmp/consumer"
cp "$src/CMakeLists.consumer.txt" "$tmp/consumer/CMakeLists.txt"
cp "$src/app.c" "$tmp/consumer/app.c"
printf 'FILE_VER 1\nSOLVER 10\n' > "$tmp/kwil.ini"
cmake -S "$tmp/consumer" -B "$tmp/consumer/build" -DCMAKE_PREFIX_PATH="$tmp/prefix" >/dev/null
cmake --build "$tmp/consumer/build" >/dev/null
LD_LIBRARY_PATH="$tmp/prefix/lib" "$tmp/consumer/build/app" "$tmp/kwil.ini" | grep -q 'SOLVER 10'
export PKG_CONFIG_PATH="$tmp/prefix/lib/pkgconfig"
cc -o "$tmp/app_pc" "$src/app.c" $(pkg-config --cflags --libs kwil)
LD_LIBRARY_PATH="$tmp/prefix/lib" "$tmp/app_pc" "$tmp/kwil.ini" | grep -q 'SOLVER 10'
echo "install, find_package and pkg-config: ok"
