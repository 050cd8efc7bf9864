#!/bin/sh
# The pkg-config file finds the library and the headers wherever the install tree lands, also
# when the library directory is two levels deep (Debian's lib/<multiarch> under /usr).
set -eu
src="$1"
tmp=$(mktemp -d); trap 'rm -rf "$tmp"' EXIT
libdir=lib/x86_64-linux-gnu
cmake -S "$src" -B "$tmp/build" -DCMAKE_INSTALL_PREFIX="$tmp/usr" -DCMAKE_INSTALL_LIBDIR=$libdir \
      -DKWIL_BUILD_TESTS=OFF >/dev/null

# A directory without symbolic links or dot segments, or "missing: dir".
resolve() { (cd "$1" 2>/dev/null && pwd -P) || echo "missing: $1"; }

# The file where the install rule puts it, in the configured prefix and in a moved copy.
for root in "$tmp/usr" "$tmp/moved/usr"; do
  pcdir="$root/$libdir/pkgconfig"
  mkdir -p "$pcdir" "$root/include"
  cp "$tmp/build/kwil.pc" "$pcdir/kwil.pc"
  got_lib=$(resolve "$(PKG_CONFIG_PATH="$pcdir" pkg-config --variable=libdir kwil)")
  got_inc=$(resolve "$(PKG_CONFIG_PATH="$pcdir" pkg-config --variable=includedir kwil)")
  want_lib=$(resolve "$root/$libdir")
  want_inc=$(resolve "$root/include")
  [ "$got_lib" = "$want_lib" ] || { echo "libdir $got_lib, expected $want_lib"; exit 1; }
  [ "$got_inc" = "$want_inc" ] || { echo "includedir $got_inc, expected $want_inc"; exit 1; }
done
echo "pkg-config paths under $libdir: ok"
