# Completion of vellum for bash. Commands and options are taken from the program's own help, names of
# profiles, stores, folders and pairs from what is there.
_vellum_words() {
  "${words[0]}" "$@" --help 2>/dev/null
}

_vellum_names() { # LISTING KEY: the values of KEY in a listing
  "${words[0]}" $1 --json 2>/dev/null | sed -n "s/^ *\"$2\": \"\(.*\)\",\{0,1\}$/\1/p" | sed 's/\\\\/\//g'
}

_vellum_offer() { # WORDS, one a line
  local IFS=$'\n' word
  for word in $1; do
    [[ $word == "$cur"* ]] && COMPREPLY+=("$(printf '%q' "$word")")
  done
}

_vellum() {
  local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]} words=("${COMP_WORDS[@]}")
  local path=() word i help
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD && ${#path[@]} < 2; ++i)); do
    word=${words[i]}
    [[ $word == -* ]] && continue
    help=$(_vellum_words "${path[@]}")
    grep -q "^  $word " <<<"$(sed -n '/^Subcommands:/,$p' <<<"$help")" && path+=("$word")
  done
  help=$(_vellum_words "${path[@]}")
  case $previous in
    --into) _vellum_offer "$(_vellum_names 'folder list' path)"; return ;;
    --profile) _vellum_offer "$(_vellum_names 'profile list' name)"; return ;;
    --data-dir|--trace|--attach) COMPREPLY=($(compgen -f -- "$cur")); return ;;
  esac
  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$(grep -oE -- '--[a-z-]+' <<<"$help" | sort -u)" -- "$cur"))
  elif grep -q '^Subcommands:' <<<"$help"; then
    COMPREPLY=($(compgen -W "$(sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p' <<<"$help")" -- "$cur"))
  else
    case "${path[*]}" in
      import) COMPREPLY=($(compgen -f -- "$cur")) ;;
      sync|'pair show'|'pair edit'|'pair remove') _vellum_offer "$(_vellum_names 'pair list' name)" ;;
      profile*) _vellum_offer "$(_vellum_names 'profile list' name)" ;;
      store*) _vellum_offer "$(_vellum_names 'store list' name)" ;;
      *) _vellum_offer "$(_vellum_names 'folder list' path)" ;;
    esac
  fi
}
complete -F _vellum vellum
