# shellcheck shell=bash
# Completions of velun(1) for bash. They ask velun for the names of the bundles, nothing else.

# Fills `words`, a variable of the caller, with the words up to the cursor as the shell will read
# them. readline also splits words at ":", "@", "=" and ">"; this joins pieces that have no blank in
# between.
_velun_words() {
  local rest=$COMP_LINE piece
  words=()
  for piece in "${COMP_WORDS[@]:0:COMP_CWORD+1}"; do
    if ((${#words[@]} > 0)) && [[ $rest != [[:blank:]]* ]]; then
      words[-1]+=$piece
    else
      words+=("$piece")
    fi
    rest=${rest#"${rest%%[![:blank:]]*}"}
    rest=${rest#"$piece"}
  done
}

# Drops redirections from the caller's `words`. Fails if the cursor is at the target of a redirection.
_velun_drop_redirections() {
  local word target='' kept=()
  for word in "${words[@]}"; do
    if [[ $word =~ ^[0-9]*[\<\>][\<\>\&\|]*(.*)$ ]]; then
      target=${BASH_REMATCH[1]:-next}
    elif [[ $target == next ]]; then
      target=$word
    else
      target=
      kept+=("$word")
    fi
  done
  [[ -z $target ]] && words=("${kept[@]}")
}

# Offers those of the words "${@:2}" that begin with "$1". A quote may be open in "$1".
_velun_offer() {
  local quoted=() word
  # compgen expands the words of its list. Quotes prevent that: a name must not run as a command.
  for word in "${@:2}"; do
    quoted+=("'${word//\'/\'\\\'\'}'")
  done
  mapfile -t COMPREPLY < <(compgen -W "${quoted[*]}" -- "$1")
}

# Fills `bundles`, a variable of the caller, with the names that `velun model list` prints. Leaves out
# names with "$" or "`": bash inserts them without quotes and would expand them.
_velun_bundles() {
  local program=$1 lines line
  [[ $program != \~/* ]] || program=$HOME/${program:2}
  # read would take a newline after an invalid byte as part of that character.
  mapfile -t lines < <(command -- "$program" model list 2>/dev/null </dev/null)
  bundles=()
  for line in "${lines[@]}"; do
    case $line in
      '* '*'  (external path)' | *[\$\`]*) ;;
      '  '* | '* '*)
        line=${line:2}
        bundles+=("${line%  (incomplete)}")
        ;;
    esac
  done
}

_velun_use() {
  local bundles word=$3
  _velun_bundles "$1"
  compopt -o filenames
  _velun_offer "$word" "${bundles[@]}"
  if [[ ${word%"$2"} == *[:=@] ]]; then
    # readline replaces only the text behind the character at which it split.
    COMPREPLY=("${COMPREPLY[@]#"${word%"$2"}"}")
  else
    compopt -o plusdirs
  fi
}

_velun() {
  local IFS=' ' words
  COMPREPLY=()
  _velun_words
  if ! _velun_drop_redirections; then
    compopt -o default
    return
  fi
  local word=${words[-1]} before="${words[*]:1:${#words[@]}-2}"
  case $before in
    '') _velun_offer "$word" config help log mode model restart setup start stats status stop ;;
    help | --help | -h) _velun_offer "$word" config model modes ports routing ;;
    mode) _velun_offer "$word" off protect watch ;;
    model) _velun_offer "$word" fetch list use ;;
    'model fetch') _velun_offer "$word" compact ;;
    'model use') _velun_use "$1" "$2" "$word" ;;
  esac
}

complete -F _velun velun
