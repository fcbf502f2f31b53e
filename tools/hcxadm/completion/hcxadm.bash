# bash completion for hcxadm(1)                             -*- shell-script -*-
# SPDX-License-Identifier: BSD-3-Clause
# The words come from the tool itself ("hcxadm words"), board numbers from "hcxadm --output json list", so that this
# file knows no nouns.

_hcxadm() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}
  local tool=${COMP_WORDS[0]} word words boards i
  local -a path=() machine=()
  COMPREPLY=()

  # "=" is a word of its own in COMP_WORDS.
  if [[ $cur == = ]]; then
    prev=${COMP_WORDS[COMP_CWORD-1]} cur=
  elif [[ $prev == = ]]; then
    prev=${COMP_WORDS[COMP_CWORD-2]}
  fi
  case $prev in
    -o | --output)
      mapfile -t COMPREPLY < <(compgen -W 'table json' -- "$cur")
      return
      ;;
    --state)
      mapfile -t COMPREPLY < <(compgen -d -- "$cur")
      return
      ;;
  esac
  if [[ $prev == --simulate && ${COMP_WORDS[COMP_CWORD]} == = || ${COMP_WORDS[COMP_CWORD-1]} == = ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    return
  fi

  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    case $word in
      --simulate)
        if [[ ${COMP_WORDS[i+1]} == = ]]; then
          machine+=("--simulate=${COMP_WORDS[i+2]}")
          ((i += 2))
        else
          machine+=(--simulate)
        fi
        ;;
      --state)
        machine+=(--state "${COMP_WORDS[i+1]}")
        ((i++))
        ;;
      -o | --output) ((i++)) ;;
      -*) ;;
      *) path+=("$word") ;;
    esac
  done

  words=$("$tool" words "${path[@]}" 2>/dev/null)
  if [[ $'\n'$words$'\n' == *$'\n'BOARD$'\n'* && $cur != -* ]]; then
    boards=$("$tool" "${machine[@]}" --output json list 2>/dev/null |
      sed -n 's/^ *"board": \([0-9]*\),$/\1/p; s/^ *"host": "\(host[0-9]*\)",$/\1/p')
    # After the board has been given, nothing is offered for it again.
    [[ ${path[-1]:-} =~ ^([0-9]+|host[0-9]+)$ ]] && boards=
  fi
  # Names in capitals stand for something to fill in.
  words=$(grep -v '^[A-Z]' <<<"$words")
  mapfile -t COMPREPLY < <(compgen -W "$words $boards" -- "$cur")
  [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == --simulate ]] && compopt -o nospace 2>/dev/null
  return 0
}

complete -F _hcxadm hcxadm
