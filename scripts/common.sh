# shellcheck shell=bash
# What every script of this folder begins with: strict mode, the tree's root as working directory, and
# the tools by their pinned names.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# The compilers and checkers that the tree is kept clean with: Debian 12's.
llvmVersion=14

die() {
   echo "${0##*/}: $*" >&2
   exit 1
}

# tool NAME: the pinned version of an LLVM tool where the machine has it, else the plain one.
tool() {
   if command -v "$1-$llvmVersion" >/dev/null; then
      echo "$1-$llvmVersion"
   else
      echo "$1"
   fi
}

# newestClang: the newest clang++ of the machine; fails when there is none newer than the pinned one.
newestClang() {
   local version
   version=$(compgen -c clang++- | sed -nE 's/^clang\+\+-([0-9]+)$/\1/p' | sort -n | tail -n 1)
   [ "${version:-0}" -gt "$llvmVersion" ] && echo "clang++-$version"
}

# sources [GLOB...]: the tree's C++ files, or its files by other globs; '*' crosses folders. Not asked of git,
# so that an unpacked archive will do as well.
sources() {
   [ $# -gt 0 ] || set -- '*.h' '*.cpp'
   local glob match=(-false)
   for glob in "$@"; do
      match+=(-o -path "./$glob")
   done
   find . \( -path './build*' -o -path ./.git -o -path ./.cache \) -prune -o \
      -type f \( "${match[@]}" \) -print | sed 's,^\./,,' | LC_ALL=C sort
}

# shellScripts: the tree's own scripts, by their name or first line.
shellScripts() {
   local file first
   sources 'scripts/*' '.ci/*' 'apps/*.bash' 'tests/*' | while read -r file; do
      IFS= read -r -n 64 first <"$file" || true
      if [[ $file == *.sh || $file == *.bash || $first =~ ^#!.*[/\ ](ba)?sh ]]; then
         echo "$file"
      fi
   done
}
