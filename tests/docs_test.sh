#!/bin/sh
# The documentation says what is so:
# - every command of a ```console block in docs/ answers as written there, the exit status included;
# - every ```c block in docs/ stands word for word in a file of examples/;
# - every link to a file leads to one;
# - the manual page and the shell completion know every subcommand and option of the tool, and the
#   completion no others; the library's page knows every header.
# Usage: docs_test.sh SOURCE_DIR BIN_DIR LIB_DIR [update]   (update: writes the answers down)
set -u
source=$1 bin=$2 lib=$3 mode=${4:-check}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset LD_PRELOAD KZSIM KZSIM_HOST KZSIM_STORE KZSIM_HOSTILE KZ_DEBUG_FILE
PATH=$bin:$PATH
LD_LIBRARY_PATH=$lib${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}
LC_ALL=C.UTF-8
# The simulated host is preloaded: a sanitizer does not come first.
ASAN_OPTIONS=verify_asan_link_order=0${ASAN_OPTIONS:+:$ASAN_OPTIONS}
export PATH LD_LIBRARY_PATH LC_ALL ASAN_OPTIONS

failures=0
fail() {
  echo "$*" >&2
  failures=$((failures + 1))
}

run_pending() {
  [ -n "$command" ] || return 0
  eval "$command" 2>&1 < /dev/null
  result=$?
  [ $result -eq 0 ] || echo "[exit status $result]"
  command=
}

# Runs the commands of the document on standard input, which is written out with what they answer.
# All of them run in one shell, in a directory of the document's own. "> " continues a command.
replay() {
  place=text command=
  while IFS= read -r line; do
    case $place:$line in
      'text:```console') place=block ;;
      command:'> '*)
        command="$command
${line#'> '}"
        ;;
      block:'$ '* | command:'$ '* | output:'$ '*)
        run_pending
        place=command command=${line#'$ '}
        ;;
      block:'```' | command:'```' | output:'```')
        run_pending
        place=text
        ;;
      command:* | output:*)
        place=output
        continue
        ;;
    esac
    printf '%s\n' "$line"
  done
}

for document in "$source"/docs/*.md; do
  name=$(basename "$document")
  mkdir "$work/$name.d"
  ln -s "$lib/kzexample_asl.so" "$work/$name.d"
  (cd "$work/$name.d" && replay < "$document" > "$work/$name")
  if [ "$mode" = update ]; then
    cmp -s "$document" "$work/$name" || cp "$work/$name" "$document"
  else
    diff -u "$document" "$work/$name" || fail "$name: the tool answers otherwise"
  fi

  rm -f "$work"/block.*
  awk -v prefix="$work/block." '
    /^```/ { open = 0 }
    open { print > (prefix count) }
    /^```c$/ { open = 1; count++ }' "$document"
  for block in "$work"/block.*; do
    [ -e "$block" ] || continue
    text=$(cat "$block")
    found=
    for example in "$source"/examples/*/*.[ch]; do
      case $(cat "$example") in
        *"$text"*) found=$example ;;
      esac
    done
    [ -n "$found" ] || fail "$name: not in examples/: $(head -n 1 "$block") ..."
  done
done

for document in "$source"/README.md "$source"/*/README.md "$source"/examples/*/README.md \
  "$source"/docs/*.md; do
  links=$(grep -o '](\([^):]*\))' "$document" | sed 's/](\([^)#]*\).*)/\1/')
  for link in $links; do
    [ -e "$(dirname "$document")/$link" ] || fail "$document: no file $link"
  done
done

# The long options that a help text lists.
options() {
  sed -n '/^Options:/,/^$/s/^  //p' | grep '^-' | sed 's/   .*//' | grep -o -- '--[a-z-]*'
}

# What the completion offers for the words given, one a line.
completions() {
  bash -c '. "$1"; shift
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
    _kzddl && printf "%s\n" "${COMPREPLY[@]% }"' - "$source/completion/kzddl.bash" "$@"
}

# completes TOLD WORD...: for these words the completion offers what a help text told.
completes() {
  sort -u "$1" > "$work/told"
  shift
  completions kzddl "$@" | sort -u | diff "$work/told" - ||
    fail "completion of kzddl $*: not what the help lists (<)"
}

kzddl --help > "$work/help"
subcommands=$(sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p' "$work/help")
options < "$work/help" > "$work/global"
{ [ -n "$subcommands" ] && [ -s "$work/global" ]; } || fail "kzddl --help lists nothing"
printf '%s\n' "$subcommands" > "$work/subcommands"
completes "$work/subcommands" ''
for subcommand in '' $subcommands; do
  kzddl ${subcommand:+"$subcommand"} --help | options > "$work/own"
  cat "$work/global" "$work/own" > "$work/both"
  completes "$work/both" ${subcommand:+"$subcommand"} --
  # The page has a section on each subcommand, and one on the global options.
  sed -n "/^\.S[hs] ${subcommand:-OPTIONS}\$/,/^\.S[hs] /p" "$source/man/kzddl.1" |
    sed '$d' > "$work/section"
  for option in $(cat "$work/own"); do
    [ "$option" = --help ] && continue
    grep -q "^\.It.* Fl $(printf '%s' "${option#-}")\( \|\$\)" "$work/section" ||
      fail "man/kzddl.1: ${subcommand:-OPTIONS} lacks $option"
  done
  [ -s "$work/section" ] || fail "man/kzddl.1: no section ${subcommand:-OPTIONS}"
  [ -z "$subcommand" ] || grep -q "^\$ kzddl.* $subcommand " "$source/docs/tool.md" ||
    fail "docs/tool.md: no example of $subcommand"
done

# The library's page names every header, and shows the program of README.md.
for header in "$source"/include/kzddl/*.h; do
  name=kzddl/$(basename "$header")
  [ "$name" = kzddl/api.h ] || grep -q "In $name\( \|\$\)" "$source/man/kzddl.3" ||
    fail "man/kzddl.3: lacks $name"
done
sed -n '/^```c$/,/^```$/p' "$source/README.md" | sed '/^```/d' > "$work/first.c"
sed -n '/^\.Bd -literal/,/^\.Ed/p' "$source/man/kzddl.3" | sed '/^\./d; s/\\e/\\/g' |
  diff "$work/first.c" - || fail "man/kzddl.3: not the program of README.md (<)"

[ "$failures" -eq 0 ]
