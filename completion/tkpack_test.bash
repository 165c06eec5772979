#!/usr/bin/env bash
# Tests completion/tkpack.bash in a real bash: for each command line it sets the
# variables bash sets on Tab (COMP_LINE, COMP_POINT, COMP_WORDS, COMP_CWORD), calls the
# completion function and compares the words offered with the expected ones. Every
# case runs twice: in a bash with bash-completion loaded (its _init_completion and
# _filedir) and in a bare bash that sources the file alone.
#
# usage: tkpack_test.bash            both modes; exit status 1 when any case fails
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)

if (($# == 0)); then
  status=0
  bash --norc --noprofile "$here/tkpack_test.bash" bare || status=1
  bash --norc --noprofile "$here/tkpack_test.bash" bash-completion || status=1
  exit $status
fi

mode=$1
if [[ $mode == bash-completion ]]; then
  source /usr/share/bash-completion/bash_completion
  declare -F _init_completion >/dev/null || {
    echo "bash-completion did not load" >&2
    exit 1
  }
fi
source "$here/tkpack.bash"

# The scratch directory every case completes in.
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
mkdir dest sub
touch a.pkg b.pkg x.desc y.desc notes.txt key.pub "my file.pkg" -- -odd.pkg sub/inner.pkg

# Splits $1 as bash does for COMP_WORDS: at blanks, with "=" a word of its own.
split_words() {
  local line=$1 word part
  local -a blank_words
  read -ra blank_words <<<"$line"
  COMP_WORDS=()
  for word in "${blank_words[@]}"; do
    while [[ $word == *=* ]]; do
      part=${word%%=*}
      [[ -n $part ]] && COMP_WORDS+=("$part")
      COMP_WORDS+=("=")
      word=${word#*=}
    done
    [[ -n $word ]] && COMP_WORDS+=("$word")
  done
  [[ $line == *[[:blank:]] ]] && COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
}

failures=0
cases=0

# check LINE EXPECTED...: completing LINE (cursor at its end) offers exactly EXPECTED,
# in any order.
check() {
  local line=$1
  shift
  COMP_LINE=$line
  COMP_POINT=${#line}
  split_words "$line"
  COMPREPLY=()
  _tkpack tkpack "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
  local got want
  got=$(printf '%s\n' "${COMPREPLY[@]}" | sed '/^$/d' | sort)
  want=$(printf '%s\n' "$@" | sed '/^$/d' | sort)
  ((cases++))
  if [[ $got != "$want" ]]; then
    ((failures++))
    printf '%s: completing "%s"\n  expected: %s\n  offered:  %s\n' "$mode" "$line" \
      "$(echo $want)" "$(echo $got)" >&2
  fi
}

all_files=(a.pkg b.pkg x.desc y.desc notes.txt key.pub "my file.pkg" -odd.pkg dest sub)

# The commands and the tool's own options.
check "tkpack " build check install header list verify diff uninstall sign compress decompress --help --version
check "tkpack ve" verify
check "tkpack c" check compress
check "tkpack --v" --version
check "tkpack frobnicate "

# Each command's options.
check "tkpack build -" --base --digest --sort --threads --help
check "tkpack check --" --base --sort --help
check "tkpack install --" --quiet --trust --pubkey --help
check "tkpack header -" --json --help
check "tkpack diff --" --extra --quiet --json --help
check "tkpack uninstall --" --force --dry-run --quiet --help
check "tkpack list --l" --long
check "tkpack verify --p" --pubkey
check "tkpack sign --" --key --password-file --help
check "tkpack compress -" --threads --help
check "tkpack decompress --" --limit --help

# Operands: description files, packages, directories, any file.
check "tkpack build " x.desc y.desc dest sub
check "tkpack check y" y.desc
check "tkpack build x.desc " a.pkg b.pkg "my file.pkg" -odd.pkg dest sub
check "tkpack list " a.pkg b.pkg "my file.pkg" -odd.pkg dest sub
check "tkpack header my" "my file.pkg"
check "tkpack verify sub/" sub/inner.pkg
check "tkpack sign " a.pkg b.pkg "my file.pkg" -odd.pkg dest sub
check "tkpack install " a.pkg b.pkg "my file.pkg" -odd.pkg dest sub
check "tkpack install a.pkg " dest sub
check "tkpack compress " "${all_files[@]}"
check "tkpack decompress a.pkg " "${all_files[@]}"
# No package by that name: every file is offered.
check "tkpack verify no" notes.txt
check "tkpack list -- -" -odd.pkg

# Every operand given: the options are left.
check "tkpack build x.desc out.pkg " --base --digest --sort --threads --help
check "tkpack install a.pkg dest " --quiet --trust --pubkey --help

# Option values, as the next word or after "=".
check "tkpack build --base " dest sub
check "tkpack check --base=" dest sub
check "tkpack build --base=s" sub
check "tkpack install --pubkey k" key.pub
check "tkpack verify --pubkey=k" key.pub
check "tkpack sign a.pkg --key " "${all_files[@]}"
check "tkpack sign a.pkg --password-file=n" notes.txt
check "tkpack decompress a.pkg out --limit "
check "tkpack compress in out --threads "

# Options and their values do not count as operands.
check "tkpack install --pubkey key.pub " a.pkg b.pkg "my file.pkg" -odd.pkg dest sub
check "tkpack install --quiet a.pkg " dest sub
check "tkpack install --pubkey=key.pub a.pkg " dest sub
check "tkpack build --base sub x.desc " a.pkg b.pkg "my file.pkg" -odd.pkg dest sub

echo "completion ($mode): $((cases - failures)) passed, $failures failed"
((failures == 0))
