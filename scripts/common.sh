# shellcheck shell=bash
# Every script of this folder begins by sourcing this: strict mode, the tree's root as working directory, and common
# functions.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# The tree is kept clean with Debian 12's compilers and checkers.
llvmVersion=14

# die MESSAGE...: prints the message with the script's name, and exits with status 1.
die() {
   echo "${0##*/}: $*" >&2
   exit 1
}

# tool NAME: prints the name of the pinned version of an LLVM tool if the machine has it, else the plain name.
tool() {
   if command -v "$1-$llvmVersion" >/dev/null; then
      echo "$1-$llvmVersion"
   else
      echo "$1"
   fi
}

# newestClang: prints the name of the machine's newest clang++; fails if none is newer than the pinned one.
newestClang() {
   local version
   version=$(compgen -c clang++- | sed -nE 's/^clang\+\+-([0-9]+)$/\1/p' | sort -n | tail -n 1)
   [ "${version:-0}" -gt "$llvmVersion" ] && echo "clang++-$version"
}

# sources [GLOB...]: lists the tree's C++ files, or the files that match other globs, in which '*' also matches '/'.
# Does not ask git, so that it works in an unpacked archive too.
sources() {
   [ $# -gt 0 ] || set -- '*.h' '*.cpp'
   local glob match=(-false)
   for glob in "$@"; do
      match+=(-o -path "./$glob")
   done
   find . \( -path './build*' -o -path ./.git -o -path ./.cache \) -prune -o \
      -type f \( "${match[@]}" \) -print | sed 's,^\./,,' | LC_ALL=C sort
}

# shellScripts: lists the tree's shell scripts, known by their name or first line.
shellScripts() {
   local file first
   sources 'scripts/*' '.ci/*' 'apps/*.bash' 'tests/*' | while read -r file; do
      IFS= read -r -n 64 first <"$file" || true
      if [[ $file == *.sh || $file == *.bash || $first =~ ^#!.*[/\ ](ba)?sh ]]; then
         echo "$file"
      fi
   done
}
