# shellcheck shell=bash
# Completion of zelctl's commands for bash. Source it, or install it as 'zelctl' where bash-completion looks.
# The candidates come from 'zelctl --complete', which takes no longer than a second.

_zelctl() {
   local options=() line='' word i
   COMPREPLY=()
   for ((i = 1; i < COMP_CWORD; i++)); do
      word=${COMP_WORDS[i]}
      case $word in
      --socket | --silo)
         if ((++i == COMP_CWORD)); then
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "${COMP_WORDS[COMP_CWORD]}")
            return
         fi
         # Words come as they were typed, so '~' is not expanded yet.
         options+=("$word" "${COMP_WORDS[i]/#'~/'/$HOME/}")
         ;;
      -*) ;;
      *) line+="$word " ;;
      esac
   done
   mapfile -t COMPREPLY < <("$1" "${options[@]}" --complete "$line${COMP_WORDS[COMP_CWORD]}" 2>/dev/null)
}

complete -F _zelctl zelctl
