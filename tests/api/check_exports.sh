#!/bin/sh
# Fails when the shared library exports a name other than kwil*, mm_* or comLinMacroTest, or
# lacks kwilInit or the self-test comLinMacroTest.
lib="$1"
syms=$(nm -D --defined-only "$lib" | awk '{print $3}' | sed 's/@.*//' | sort -u)
[ -n "$syms" ] || { echo "no exported symbols in $lib"; exit 1; }
echo "$syms" | grep -q '^kwilInit$' || { echo "kwilInit not exported"; exit 1; }
echo "$syms" | grep -q '^comLinMacroTest$' || { echo "comLinMacroTest not exported"; exit 1; }
bad=$(echo "$syms" | grep -v -E '^(kwil[A-Za-z]*|mm_[a-z_]*|comLinMacroTest)$')
if [ -n "$bad" ]; then
  echo "unexpected exports:"; echo "$bad"; exit 1
fi
echo "$(echo "$syms" | wc -l) exported names, all public"
