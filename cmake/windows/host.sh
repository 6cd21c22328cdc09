#!/usr/bin/env bash
# Makes what a build for Windows needs of the interpreter, from the one on this machine: its headers
# with the configuration for Windows, and an import library of the symbols that it exports.
#
#   cmake/windows/host.sh FOLDER
#
# A symbol that the interpreter does not export is not in the library, and fails the link.
set -euo pipefail

here=$(dirname "${BASH_SOURCE[0]}")
out=$1
PYTHON=${PYTHON:-/usr/bin/python3}
TARGET=x86_64-w64-mingw32

headers=$("$PYTHON" -c 'import sysconfig; print(sysconfig.get_path("include"))')
interpreter=$("$PYTHON" -c 'import os, sys; print(os.path.realpath(sys.executable))')

rm -rf "$out"
mkdir -p "$out"
# With their times: a build that is up to date stays so.
cp --recursive --dereference --preserve=timestamps "$headers" "$out/include"
cp --preserve=timestamps "$here/pyconfig.h" "$out/include/pyconfig.h"

# What is not code is data, and has to be imported as such.
{
  echo 'LIBRARY python311.dll'
  echo 'EXPORTS'
  nm --dynamic --defined-only "$interpreter" |
    awk '$3 ~ /^_?Py/ { print "  " $3 ($2 == "T" ? "" : " DATA") }'
} >"$out/python311.def"
"$TARGET-dlltool" --input-def "$out/python311.def" --output-lib "$out/libpython311.a"

# The compiler's own choice of libraries, but for the C runtime.
"$TARGET-g++-posix" -dumpspecs | sed 's/-lmsvcrt/-lucrt/g' >"$out/universal.specs"
grep --quiet --fixed-strings -e -lucrt "$out/universal.specs"
