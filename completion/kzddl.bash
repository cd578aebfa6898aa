# Completion of kzddl for bash. Subcommands and options are those that the tool's own --help lists.

_kzddl_subcommands() {  # TOOL
  "$1" --help 2> /dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p'
}

# "--option" or "--option WORD", one a line.
_kzddl_options() {  # TOOL [SUBCOMMAND]
  "$@" --help 2> /dev/null |
    sed -n '/^Options:/,/^$/s/^  \(-.*\)/\1/p' | sed 's/  .*//' | tr ',' '\n' | grep ^-- | sort -u
}

# What an option of a subcommand takes, where that is known.
_kzddl_values() {  # SUBCOMMAND OPTION
  case $1:$2 in
    *:--route) echo direct indirect ;;
    reservations:--type)
      echo write-exclusive exclusive-access we-registrants-only ea-registrants-only \
        we-all-registrants ea-all-registrants
      ;;
    inquiry:--page) echo 00 80 83 ;;
    modes:--page) echo 03 04 08 0a 0e ;;
    groups:--set) echo optimized nonoptimized standby unavailable ;;
  esac
}

# The words of a subcommand that are no options.
_kzddl_words() {  # SUBCOMMAND
  case $1 in
    decode) echo inquiry vpd00 vpd80 vpd83 vpdb0 vpdb1 vpdb2 groups capacity modes copy-limits ;;
    descriptor) echo port-name port-id identification ;;
    reservations) echo register reserve release clear preempt ;;
  esac
  case $1 in
    decode | descriptor) ;;
    *) compgen -G '/dev/sd*'; compgen -G '/dev/sg*'; compgen -G '/dev/kz/rjox/*' ;;
  esac
}

_kzddl_files() {  # WORD [compgen option]
  compopt -o filenames 2> /dev/null
  mapfile -t COMPREPLY < <(compgen "${2:--f}" -- "$1")
}

_kzddl() {
  local tool=${COMP_WORDS[0]} word=${COMP_WORDS[COMP_CWORD]} option='' subcommand='' i
  local -a before=("${COMP_WORDS[@]:1:COMP_CWORD-1}")
  COMPREPLY=()

  # readline takes "=" for a word of its own: --option=WORD, --set GROUP=WORD.
  [ "$word" = = ] && before+=('=') && word=''
  if [ "${before[*]: -1}" = = ]; then
    for ((i = ${#before[@]} - 2; i >= 0; --i)); do
      option=${before[i]}
      [[ $option = -* ]] && break
    done
  elif [ ${#before[@]} -gt 0 ]; then
    option=${before[*]: -1}
    [[ $option = --* && $option != --sim ]] || option=
  fi

  local subcommands
  subcommands=$(_kzddl_subcommands "$tool")
  for i in "${before[@]}"; do
    [[ " ${subcommands//$'\n'/ } " = *" $i "* ]] && subcommand=$i && break
  done

  local options
  options=$(_kzddl_options "$tool"; _kzddl_options "$tool" ${subcommand:+"$subcommand"})
  case $subcommand:$option in
    *:--sim | send:--out | send:--out-hex | read:--out | write:--in | attribute:--library)
      _kzddl_files "$word"
      return
      ;;
    *:--sim-store)
      _kzddl_files "$word" -d
      return
      ;;
    *:--*)
      if [[ $'\n'$options = *$'\n'"$option "* ]]; then
        [ "$option" = --set ] && [ "${before[*]: -1}" != = ] && return
        mapfile -t COMPREPLY < <(compgen -W "$(_kzddl_values "$subcommand" "$option")" -- "$word")
        return
      fi
      ;;
  esac

  if [[ $word = -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(sed 's/ .*//' <<< "$options" | sort -u)" -- "$word")
  elif [ -z "$subcommand" ]; then
    mapfile -t COMPREPLY < <(compgen -W "$subcommands" -- "$word")
  else
    local words
    words=$(_kzddl_words "$subcommand")
    case $subcommand in
      decode | descriptor | reservations)
        # One of these words is enough; then decode takes a file.
        for i in "${before[@]}"; do
          [[ $i != /* && $'\n'${words// /$'\n'}$'\n' = *$'\n'"$i"$'\n'* ]] || continue
          [ "$subcommand" = decode ] && _kzddl_files "$word"
          return 0
        done
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
  fi
  return 0
}

complete -F _kzddl kzddl
