# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Bash completion for relayctl: commands, options and their words, files, and the names of the ports
# that the service's configuration has, which relayctl itself tells.

# The options of a command, or of all commands.
_relayctl_options() {
  case $1 in
    '') echo --help --version --port --json --timeout --patience ;;
    open) echo --hold ;;
    write) echo --hex --file --blocks --linger ;;
    watch) echo --time --show --split --log --for ;;
    terminal) echo --with ;;
    pipe) echo --exit-after --idle --until ;;
    pty) echo --link --exec --mode --group ;;
    record) echo --output --listen --for ;;
    replay) echo --speed --fast --wait ;;
    serve) echo --port --listen --fast --usr1 --usr2 ;;
    share) echo --listen --watchers --pty --mode --group ;;
    check) echo --recording --junit --tap --list --only --variants --listen --jobs --quiet --limit ;;
    raw) echo --wait --fields ;;
    decode) echo --file --direction --brief ;;
    doctor) echo --open ;;
    log) echo --unit --follow --level --device --brief ;;
    status) echo --watch --prometheus ;;
    suggest) echo --once --count --file --places --configured ;;
  esac
}

# What stands behind an option of a command: "file", "value", "none", or the words to choose from.
_relayctl_value_of() {
  case $1:$2 in
    *:-f | *:--file | *:-o | *:--output | *:--log | *:--link | \
      *:--device | *:--prometheus | *:--recording | *:--junit) echo file ;;
    *:--time) echo clock start delta none ;;
    *:--show) echo both hex text ;;
    *:--direction) echo guess to from ;;
    *:--level) echo fatal error warning progress debug ;;
    *:-p | *:--port | *:--timeout | *:--patience | *:--hex | *:--blocks | *:--linger | *:--split | \
      *:--for | *:--exec | *:--with | *:--exit-after | *:--idle | *:--until | *:--listen | \
      *:--speed | *:--wait | *:--count | *:--unit | *:--usr1 | *:--usr2 | \
      *:--watchers | *:--pty | *:--mode | *:--group | *:--only | *:--variants | *:--jobs | \
      *:--quiet | *:--limit) echo value ;;
    *) echo none ;;
  esac
}

# What the argument is of which so many stand in front: "port", "file", or "none".
_relayctl_argument() {
  case $1:$2 in
    open:* | watch:* | record:* | doctor:*) echo port ;;
    replay:0 | log:0) echo file ;;
    close:0 | write:0 | terminal:0 | pipe:0 | pty:0) echo port ;;
    *) echo none ;;
  esac
}

# Adds those of the words that begin with what stands there already. They come from a file, so they
# are not expanded.
_relayctl_offer() {
  local typed=$1 word
  while read -r word; do
    [[ -n $word && $word == "$typed"* ]] && COMPREPLY+=("$word")
  done
}

_relayctl_offer_words() {
  _relayctl_offer "$1" < <(printf '%s\n' "${@:2}")
}

# As file names, so that bash puts a backslash before the # that would begin a comment.
_relayctl_offer_ports() {
  compopt -o filenames 2>/dev/null
  _relayctl_offer "$1" < <(command "$relayctl" suggest --configured 2>/dev/null)
}

_relayctl_offer_files() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

# Finds in the words before the cursor the command, how many arguments stand behind it, and the
# option whose value is being typed; the results are variables of the caller.
_relayctl_look() {
  local word
  local -i i
  for ((i = 1; i < COMP_CWORD; ++i)); do
    word=${COMP_WORDS[i]}
    if [[ $word == = ]]; then
      continue  # between an option and its value
    elif [[ -n $option ]]; then
      option=
    elif [[ $word == -?* ]]; then
      [[ $(_relayctl_value_of "$command" "$word") == none ]] || option=$word
    elif [[ -z $command ]]; then
      command=$word
    else
      arguments+=1
    fi
  done
}

_relayctl() {
  local relayctl=$1 typed=$2 command='' option=''
  local -i arguments=0
  local -a words
  COMPREPLY=()
  _relayctl_look
  [[ $typed == = ]] && typed=
  typed=${typed//\\/}  # what bash has quoted the time before
  if [[ -n $option ]]; then
    read -ra words < <(_relayctl_value_of "$command" "$option")
    case ${words[0]} in
      file) _relayctl_offer_files "$typed" ;;
      value) ;;
      *) _relayctl_offer_words "$typed" "${words[@]}" ;;
    esac
  elif [[ $typed == -* ]]; then
    read -ra words < <(echo "${command:+$(_relayctl_options "$command")}" "$(_relayctl_options '')")
    _relayctl_offer_words "$typed" "${words[@]}"
  elif [[ -z $command ]]; then
    _relayctl_offer_words "$typed" open close write watch terminal pipe pty record replay serve \
      share check raw decode doctor log status suggest
  else
    case $(_relayctl_argument "$command" "$arguments") in
      port) _relayctl_offer_ports "$typed" ;;
      file) _relayctl_offer_files "$typed" ;;
    esac
  fi
}

complete -F _relayctl relayctl
