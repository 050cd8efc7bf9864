#!/bin/sh
# The shared library exports exactly the functions that the public headers declare with
# KWIL_API (the kwil* handle interface, the mm_* Matrix Market routines and comLinMacroTest),
# and every exported name has one of those forms.
set -eu
lib="$1"; shift
syms=$(nm -D --defined-only "$lib" | awk '{print $3}' | sed 's/@.*//' | sort -u)
[ -n "$syms" ] || { echo "no exported symbols in $lib"; exit 1; }
bad=$(echo "$syms" | grep -v -E '^(kwil[A-Za-z]*|mm_[a-z_]*|comLinMacroTest)$' || true)
if [ -n "$bad" ]; then
  echo "unexpected exports:"; echo "$bad"; exit 1
fi
declared=$(grep -v '^ *#' "$@" | tr '\n' ' ' | grep -o 'KWIL_API [^(;]*(' | sed 's/($//; s/.*[ *]//' | sort -u)
[ -n "$declared" ] || { echo "no KWIL_API declarations in $*"; exit 1; }
missing=$(printf '%s\n' "$declared" | grep -v -x -F "$syms" || true)
extra=$(printf '%s\n' "$syms" | grep -v -x -F "$declared" || true)
if [ -n "$missing" ]; then
  echo "declared but not exported:"; echo "$missing"; exit 1
fi
if [ -n "$extra" ]; then
  echo "exported but not declared:"; echo "$extra"; exit 1
fi
echo "$(echo "$syms" | wc -l) exported names, exactly the declared ones"
