# Runs what a document shows, so that it cannot show what is not so. Sourced, behind lab.sh.
#
# In a block ```console, a line "> COMMAND" is run and the lines behind it are what it writes, on both streams; "…" stands
# for any text within a line, and alone for any number of lines. Commands are qela, reg, type FILE and
# echo %ERRORLEVEL%, with the quotes of Windows. All run in one folder, on one machine. A comment before a block makes
# what the reader has by then:
#
#     <!-- lab: COMMAND...; -->     words of lab.sh, in one line
#     <!-- file: NAME -->           the block that follows is a file of this name

# split_line LINE: its words, in $words. Double quotes hold blanks together; \" and \\ at their end are as Windows has it.
split_line() {
  local line=$1 word='' quoted='' any='' letter
  words=()
  while [ -n "$line" ]; do
    letter=${line:0:1}
    line=${line:1}
    if [[ -n $quoted && $letter = '\' && ${line:0:1} = ['"\'] && (${line:0:1} = '"' || ${line:1:1} = '"') ]]; then
      word+=${line:0:1}
      line=${line:1}
    elif [ "$letter" = '"' ]; then
      if [ -n "$quoted" ]; then quoted=''; else quoted=1; fi
      any=1
    elif [[ $letter = ' ' && -z $quoted ]]; then
      [ -z "$word$any" ] || words+=("$word")
      word='' any=''
    else
      word+=$letter
    fi
  done
  [ -z "$word$any" ] || words+=("$word")
}

# run_line LINE: what it writes, in $output.
run_line() {
  split_line "$1"
  it "$document: $1"
  set -- "${words[@]}"
  case $1 in
    qela | reg)
      exit_code=0
      output=$("$@" 2>&1 </dev/null) || exit_code=$?
      ;;
    type) output=$(<"$2") ;;
    echo) output=${*:2} output=${output//%ERRORLEVEL%/$exit_code} ;;
    *) failed "a document can run qela, reg, type and echo only" ;;
  esac
  output=${output//$'\r'/}
}

# expect_lines EXPECTED FOUND
expect_lines() {
  local expected found i=0 j=0
  mapfile -t expected <<<"$1"
  mapfile -t found <<<"$2"
  while [ $i -lt ${#expected[@]} ]; do
    if [ "${expected[i]}" = … ]; then
      i=$((i + 1))
      [ $i -lt ${#expected[@]} ] || return 0
      until [ $j -ge ${#found[@]} ] || line_agrees "${expected[i]}" "${found[j]}"; do j=$((j + 1)); done
    fi
    { [ $j -lt ${#found[@]} ] && line_agrees "${expected[i]}" "${found[j]}"; } ||
      failed "the document shows:" "${expected[@]}" "it writes:" "${found[@]}"
    i=$((i + 1)) j=$((j + 1))
  done
  [ $j -eq ${#found[@]} ] || failed "the document shows:" "${expected[@]}" "it writes more:" "${found[@]}"
}

# line_agrees EXPECTED FOUND
line_agrees() {
  local IFS= part rest=$2 first=1
  local text=$1…
  while [ -n "$text" ]; do
    part=${text%%…*}
    text=${text#*…}
    if [ -n "$first" ]; then
      [[ $rest = "$part"* ]] || return 1
      rest=${rest#"$part"}
      first=''
    elif [ -z "$text" ]; then
      [[ $rest = *"$part" ]]
      return
    else
      [[ $rest = *"$part"* ]] || return 1
      rest=${rest#*"$part"}
    fi
  done
  [ -z "$rest" ]
}

# run_document FILE [PATTERN]: with a pattern only the sections whose heading ("## …") agrees, and what stands before the
# first.
run_document() {
  document=${1##*/}
  local line fence='' file='' shown='' command='' number=0 left_out=''
  cd "$(mktemp -d)" || return
  while IFS= read -r line || [ -n "$line" ]; do
    # shellcheck disable=SC2053 # a pattern
    if [[ -z $fence && $line = '## '* ]]; then
      if [[ ${line#\#\# } = ${2:-*} ]]; then left_out=''; else left_out=1; fi
    fi
    if [ -n "$left_out" ]; then
      continue
    elif [ -z "$fence" ]; then
      case $line in
        '<!-- lab: '*' -->') line=${line#<!-- lab: } && eval "${line% -->}" ;;
        '<!-- file: '*' -->') file=${line#<!-- file: } file=${file% -->} ;;
        '```console') fence=console command='' ;;
        '```'*)
          fence=other
          [ -z "$file" ] || : >"$file"
          ;;
      esac
    elif [ "$line" = '```' ]; then
      [ -z "$command" ] || finish_command
      fence='' file=''
    elif [ $fence = other ]; then
      [ -z "$file" ] || printf '%s\n' "$line" >>"$file"
    elif [[ $line = '> '* ]]; then
      [ -z "$command" ] || finish_command
      command=${line#> } shown=''
    else
      shown+=${shown:+$'\n'}$line
    fi
  done <"$1"
  [ "$number" -gt 0 ] || failed "$document runs nothing"
}
finish_command() {
  run_line "$command"
  expect_lines "$shown" "$output"
  number=$((number + 1))
  command=''
}
