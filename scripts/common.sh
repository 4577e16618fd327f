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

# sources [GLOB...]: the tree's C++ files that git tracks or would track, or those of other globs.
sources() {
   [ $# -gt 0 ] || set -- '*.h' '*.cpp'
   git ls-files --cached --others --exclude-standard --deduplicate -- "$@" | while read -r file; do
      [ ! -f "$file" ] || echo "$file"
   done
}

# shellScripts: the tree's own scripts, by their first line.
shellScripts() {
   sources 'scripts/*' '.ci/*' 'tests/*' | while read -r file; do
      if [[ $file == *.sh ]] || head -c 64 "$file" | head -n 1 | grep -qaE '^#!.*\b(ba)?sh\b'; then
         echo "$file"
      fi
   done
}
