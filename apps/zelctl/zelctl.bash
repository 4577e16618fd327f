# shellcheck shell=bash
# Completion of zelctl's commands for bash. Source it, or install it as 'zelctl' where bash-completion looks.
# What may come next, zelctl says itself, within a second; here is only how bash asks for it.

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
         # The shell hands words over as they were typed.
         options+=("$word" "${COMP_WORDS[i]/#'~/'/$HOME/}")
         ;;
      -*) ;;
      *) line+="$word " ;;
      esac
   done
   mapfile -t COMPREPLY < <("$1" "${options[@]}" --complete "$line${COMP_WORDS[COMP_CWORD]}" 2>/dev/null)
}

complete -F _zelctl zelctl
