# bash completion for tkpack(1)                                -*- shell-script -*-
#
# Completes the commands; each command's options; the value of an option (a directory
# after --base, any file after --key, --pubkey and --password-file); and the operands
# by what each one is: a package (*.pkg) for install, header, list, verify, diff,
# uninstall and sign, a description file (*.desc) for build and check, a directory for
# the destination of install, diff and uninstall, any file for the codec commands. Packages and description files are offered with the
# directories to walk into, and every file when none has the usual name ending.
#
# Installed as share/bash-completion/completions/tkpack, where bash-completion loads it
# on the first Tab after "tkpack"; it can also be sourced on its own (". tkpack.bash"),
# and then it does without bash-completion's helpers.
#
# A new command or option is one line in each of the three tables below.

# The commands, in the order of "tkpack --help".
_tkpack_commands() {
  echo build check install header list verify diff uninstall sign compress decompress
}

# The options of command $1, --help included.
_tkpack_options() {
  case $1 in
    build) echo --base --digest --sort --threads ;;
    check) echo --base --sort ;;
    install) echo --quiet --trust --pubkey ;;
    header) echo --json ;;
    list) echo --long --json ;;
    verify) echo --pubkey --json ;;
    diff) echo --extra --quiet --json ;;
    uninstall) echo --force --dry-run --quiet ;;
    sign) echo --key --password-file ;;
    compress) echo --threads ;;
    decompress) echo --limit ;;
  esac
  echo --help
}

# What option $1 takes: "dir", "file" or "text" (nothing to complete); nothing for a
# flag.
_tkpack_option_value() {
  case $1 in
    --base) echo dir ;;
    --key | --password-file | --pubkey) echo file ;;
    --limit | --threads) echo text ;;
  esac
}

# What operand number $2 (from 0) of command $1 is: "desc", "pkg", "dir" or "file";
# nothing past the last operand.
_tkpack_operand() {
  local -a kinds=()
  case $1 in
    build) kinds=(desc pkg) ;;
    check) kinds=(desc) ;;
    install | diff | uninstall) kinds=(pkg dir) ;;
    header | list | verify | sign) kinds=(pkg) ;;
    compress | decompress) kinds=(file file) ;;
  esac
  echo "${kinds[$2]-}"
}

# Completes $cur as a value of kind $1: "dir", "file", or a name ending ("pkg", "desc")
# whose files are offered with the directories, and every file when none matches.
_tkpack_complete_path() {
  local kind=$1
  if declare -F _filedir >/dev/null; then
    case $kind in
      dir) _filedir -d ;;
      file) _filedir ;;
      *)
        _filedir "$kind"
        ((${#COMPREPLY[@]})) || _filedir
        ;;
    esac
    return
  fi
  local IFS=$'\n'
  compopt -o filenames 2>/dev/null
  case $kind in
    dir) COMPREPLY=($(compgen -d -- "$cur")) ;;
    file) COMPREPLY=($(compgen -f -- "$cur")) ;;
    *)
      COMPREPLY=($(compgen -f -X "!*.$kind" -- "$cur") $(compgen -d -- "$cur"))
      ((${#COMPREPLY[@]})) || COMPREPLY=($(compgen -f -- "$cur"))
      ;;
  esac
}

# Without bash-completion: the words up to the cursor, split at blanks, and the
# "--option=value" form split as _init_completion -s splits it.
_tkpack_init_words() {
  local line=${COMP_LINE:0:COMP_POINT}
  read -ra words <<<"$line"
  [[ $line == *[[:blank:]] || -z $line ]] && words+=("")
  cword=$((${#words[@]} - 1))
  cur=${words[cword]}
  prev=${words[cword - 1]-}
  split=false
  if [[ $cur == --*=* ]]; then
    prev=${cur%%=*}
    cur=${cur#*=}
    split=true
  fi
}

_tkpack() {
  local cur prev words cword split
  if declare -F _init_completion >/dev/null; then
    _init_completion -s || return
  else
    _tkpack_init_words
  fi

  if ((cword == 1)); then
    COMPREPLY=($(compgen -W "$(_tkpack_commands) --help --version" -- "$cur"))
    return
  fi
  local command=${words[1]}
  [[ " $(_tkpack_commands) " == *" $command "* ]] || return

  # The value of an option: "--base DIR" or "--base=DIR".
  local value
  value=$(_tkpack_option_value "$prev")
  if [[ $split == true || (-n $value && $prev == -*) ]]; then
    [[ $value == dir || $value == file ]] && _tkpack_complete_path "$value"
    return
  fi

  # Count the operands before the cursor, stepping over options and their values.
  local i word operands=0 ended=false
  for ((i = 2; i < cword; i++)); do
    word=${words[i]}
    if [[ $ended == true ]]; then
      ((operands++))
    elif [[ $word == -- ]]; then
      ended=true
    elif [[ $word == -?* ]]; then
      [[ $word != *=* && -n $(_tkpack_option_value "$word") ]] && ((i++))
    else
      ((operands++))
    fi
  done

  local kind
  kind=$(_tkpack_operand "$command" "$operands")
  if [[ $ended == false && ($cur == -* || -z $kind) ]]; then
    COMPREPLY=($(compgen -W "$(_tkpack_options "$command")" -- "$cur"))
    return
  fi
  [[ -n $kind ]] && _tkpack_complete_path "$kind"
}

complete -F _tkpack tkpack
