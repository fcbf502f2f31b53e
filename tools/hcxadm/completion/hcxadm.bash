# bash completion for hcxadm(8)                             -*- shell-script -*-
# SPDX-License-Identifier: BSD-3-Clause
# The words come from the tool itself ("hcxadm words"), board numbers from "hcxadm --output json list", so that this
# file knows no nouns.

_hcxadm() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}
  local tool=${COMP_WORDS[0]} word value words values i
  local -a path=() machine=()
  COMPREPLY=()

  # "=" is a word of its own in COMP_WORDS.
  [[ $cur == = ]] && cur=
  if [[ $prev == = ]]; then
    prev=${COMP_WORDS[COMP_CWORD-2]}=
  elif [[ ${COMP_WORDS[COMP_CWORD]} == = ]]; then
    prev+="="
  fi
  case $prev in
    -o | --output | --output=)
      mapfile -t COMPREPLY < <(compgen -W 'table json' -- "$cur")
      return
      ;;
    --state | --state=)
      mapfile -t COMPREPLY < <(compgen -d -- "$cur")
      return
      ;;
    --board=) prev=--board ;;
  esac

  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]} value=
    if [[ ${COMP_WORDS[i+1]} == = ]]; then
      value=${COMP_WORDS[i+2]}
      ((i += 2))
    elif [[ $word == --state || $word == --output || $word == -o ]]; then
      value=${COMP_WORDS[i+1]}
      ((i++))
    fi
    case $word in
      --simulate) machine+=("--simulate${value:+=$value}") ;;
      --state) machine+=(--state "$value") ;;
      -*) ;;
      *) path+=("$word") ;;
    esac
  done

  words=$("$tool" words "${path[@]}" 2>/dev/null)
  # "VALUE --option word", "VALUE ARGUMENT word": what an option or argument may be.
  if [[ $prev == --* && $prev != --board ]]; then
    values=$(sed -n "s/^VALUE ${prev%=} //p" <<<"$words")
    if [[ -n $values || $prev == *= ]]; then
      mapfile -t COMPREPLY < <(if [[ -n $values ]]; then compgen -W "$values" -- "$cur"; else compgen -f -- "$cur"; fi)
      return
    fi
  fi
  if [[ ($'\n'$words$'\n' == *$'\n'BOARD$'\n'* || $prev == --board) && $cur != -* ]]; then
    values=$("$tool" "${machine[@]}" --output json list 2>/dev/null |
      sed -n 's/^ *"board": \([0-9]*\),$/\1/p; s/^ *"host": "\(host[0-9]*\)",$/\1/p')
    # After the board has been given, nothing is offered for it again.
    [[ $prev != --board && ${path[-1]:-} =~ ^([0-9]+|host[0-9]+)$ ]] && values=
  fi
  if [[ $'\n'$words$'\n' == *$'\n'CATEGORY$'\n'* && $cur != -* ]]; then
    values=$("$tool" log 2>/dev/null | cut -f 1 | grep -v CATEGORY)
  fi
  # "auth VERB BOARD REMOTE DIRECTION"
  if [[ ${path[0]:-} == auth && ${#path[@]} -eq 3 && $'\n'$words$'\n' == *$'\n'REMOTE$'\n'* && $cur != -* ]]; then
    values="fabric $("$tool" "${machine[@]}" --output json auth list "${path[2]}" 2>/dev/null |
      sed -n 's/^ *"remote": "\([0-9a-f:]*\)",$/\1/p' | tr -d :)"
  elif [[ ${path[0]:-} == auth && ${#path[@]} -eq 4 && $cur != -* ]]; then
    values=$(sed -n 's/^VALUE [A-Z]* //p' <<<"$words")
  fi
  # Names in capitals stand for something to fill in; options are offered when they are asked for.
  if [[ $cur == -* ]]; then
    words=$(grep '^-' <<<"$words")
  else
    words=$(grep -v '^[-A-Z]' <<<"$words")
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words $values" -- "$cur")
  [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == --simulate ]] && compopt -o nospace 2>/dev/null
  return 0
}

complete -F _hcxadm hcxadm
