# Completion of vellum for bash: source this file. Commands, options and what they take come from the
# program's own help, names of profiles, stores, folders, pairs and settings from what is there.

# Splits the line up to the cursor as the shell would, but leaves "@", ":" and "=" where they are: sets
# words, cur (the word under the cursor without its quoting), raw (the same as typed) and quote (the quote
# that is still open).
_vellum_split() {
  local line=${COMP_LINE:0:COMP_POINT} i char started=
  words=() cur= raw= quote=
  for ((i = 0; i < ${#line}; ++i)); do
    char=${line:i:1}
    if [[ -z $quote && $char == [[:space:]] ]]; then
      [[ $started ]] && words+=("$cur")
      cur= raw= started=
      continue
    fi
    raw+=$char started=1
    if [[ $quote ]]; then
      if [[ $char == "$quote" ]]; then quote=; else cur+=$char; fi
    elif [[ $char == [\"\'] ]]; then
      quote=$char
    elif [[ $char == \\ ]]; then
      i=$((i + 1)) cur+=${line:i:1} raw+=${line:i:1}
    else
      cur+=$char
    fi
  done
  [[ $raw == \~/* ]] && cur=$HOME${cur:1}
}

_vellum_help() { # [COMMAND...]
  "$program" "$@" --help 2>/dev/null
}

# What an option takes, from the help that has it: FOLDER, FILE, en|de ... Nothing for a switch.
_vellum_argument() { # HELP OPTION
  [[ $'\n'$1 =~ $'\n  '(-[a-z],)?("$2"|[^ ]*,"$2")" "([^\ ]+) ]] || return
  [[ ${BASH_REMATCH[3]} == Excludes: ]] || echo "${BASH_REMATCH[3]%%:*}"
}

_vellum_options() { # HELP: each option and its opposite
  sed -n '/^Options:/,/^$/{s/^  \(-[a-z],\)\{0,1\}\(--[a-z-]*\).*/\2/p}' <<<"$1"
  grep -o 'off: --[a-z-]*' <<<"$1" | sed 's/off: //'
}

_vellum_values() { # KEY COMMAND...: the values of KEY in a listing
  local key=$1
  shift
  "$program" "${globals[@]}" "$@" --json 2>/dev/null | sed -n "s/^ *\"$key\": \"\(.*\)\",\{0,1\}$/\1/p" |
    sed 's/\\"/"/g; s/\\\\/\\/g'
}

# Folders with "/", unless a name on the way holds one or the person writes "\".
_vellum_folders() {
  if [[ $cur == *\\* ]]; then
    _vellum_values path folder list
  else
    _vellum_values path folder list | sed '/\//!s/\\/\//g'
  fi
}

# Names, one a line, quoted as the word under the cursor is. Readline replaces only what stands behind the
# last ":" or "=", or from the last "@" on.
_vellum_offer() {
  local IFS=$'\n' name piece=${COMP_WORDS[COMP_CWORD]} kept=
  [[ $piece == [@:=] ]] && piece=
  [[ -z $quote ]] && kept=${raw%"$piece"} kept=${kept%@}
  for name in $1; do
    [[ $name == "$cur"* ]] || continue
    [[ $quote ]] || printf -v name '%q' "$name"
    COMPREPLY+=("${name#"$kept"}")
  done
}

_vellum_offer_kind() { # what the help calls it
  case $1 in
    FOLDER|SOURCE|TARGET) _vellum_offer "$(_vellum_folders)" ;;
    PAIR) _vellum_offer "$(_vellum_values name pair list)" ;;
    FILE) compopt -o filenames; COMPREPLY=($(IFS=$'\n'; compgen -f -- "$cur")) ;;
    DIR) compopt -o filenames; COMPREPLY=($(IFS=$'\n'; compgen -d -- "$cur")) ;;
    NAME)
      case ${path[*]} in
        profile\ create|store\ create) ;;
        store*) _vellum_offer "$(_vellum_values name store list)" ;;
        settings*) _vellum_offer "$(_vellum_values name settings show)" ;;
        profile*) _vellum_offer "$(_vellum_values name profile list)" ;;
      esac
      ;;
    *\|*) _vellum_offer "${1//|/$'\n'}" ;;
  esac
}

# Takes what stands before the cursor apart: sets path (the command), globals (options that say where the
# names are), given (the number of other words) and taken (what the option before the cursor takes).
_vellum_read() {
  local word= option= kind
  path=() globals=() given=0 taken= help=$top
  for word in "${words[@]:1}"; do
    if [[ $option ]]; then
      [[ $option == --data-dir || $option == --profile ]] && globals+=("$option" "$word")
      option= taken=
    elif [[ $word == --*=* ]]; then
      [[ $word == --data-dir=* || $word == --profile=* ]] && globals+=("$word")
    elif [[ $word == -* ]]; then
      kind=$(_vellum_argument "$help" "$word")
      [[ $kind ]] || kind=$(_vellum_argument "$top" "$word")
      [[ $kind && $kind != \[* ]] && option=$word taken=$kind
    elif grep -q "^  $word " <<<"$(sed -n '/^Subcommands:/,/^$/p' <<<"$help")"; then
      path+=("$word") help=$(_vellum_help "${path[@]}")
    else
      given=$((given + 1))
    fi
  done
}

_vellum() {
  local program=${COMP_WORDS[0]/#\~\//$HOME/} words cur raw quote path globals given taken help top option kinds kind
  COMPREPLY=()
  _vellum_split
  top=$(_vellum_help)
  _vellum_read
  option=${words[-1]}
  if [[ -z $taken && $cur == --*=* ]]; then
    option=${cur%%=*}
    taken=$(_vellum_argument "$help"$'\n'"$top" "$option")
    raw=${raw#*=} cur=${cur#*=}
    [[ $taken ]] || return 0
  fi
  if [[ $taken ]]; then
    [[ $option == --profile ]] && path=(profile)
    _vellum_offer_kind "$taken"
  elif [[ $cur == -* ]]; then
    [[ $path ]] && help+=$'\n'$(grep -v -- '--man\|--version' <<<"$top")
    COMPREPLY=($(compgen -W "$(_vellum_options "$help")" -- "$cur"))
  elif grep -q '^Subcommands:' <<<"$help"; then
    COMPREPLY=($(compgen -W "$(sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p' <<<"$help")" -- "$cur"))
  else
    kinds=($(sed -n 's/^Usage: .*\[OPTIONS\]//p' <<<"$help" | tr -d '[]'))
    [[ ${kinds[-1]-} == *... ]] && ((given >= ${#kinds[@]})) && given=$((${#kinds[@]} - 1))
    kind=${kinds[given]-}
    _vellum_offer_kind "${kind%...}"
  fi
}
complete -F _vellum vellum
