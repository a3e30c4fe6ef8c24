#!/bin/bash
# Runs the library as long as a service does, in little time. ./dev reads the command line with what stands here, too: what
# is wrong with it is told before minutes go into the toolchain.
# usage: soak.sh FOLDER_OF_PROGRAMS [ARGUMENT...]
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

readonly kSoakJobs=(operations scripted real starts reentrant)

soak_usage() {
  cat <<'TEXT'
usage: ./dev soak [--for TIME] [--job NAME]

  --for TIME   how long in all, such as 90s, 10m or 2h, which the jobs share; as long as their numbers take if it is
               not given: some eight minutes
  --job NAME   only this job:
               operations  2,000,000 operations by 16 threads, any of the 22 of both instances, while addresses change
               scripted    100,000 scripted changes of address, of which the host is told in order
               real        10,000 changes of the addresses of the machine, a private one
               starts      10,000 starts and stops of discovery, and the library loaded anew now and then
               reentrant   100,000 operations of a host that calls back in wherever it is called

Each job watches the handles, threads, private bytes and working set of its process, and fails where one of them grows:
the table at the end has the growth in 10,000 of what the job counts. Where nothing goes on for a minute, the job ends
and tells what each of its threads was doing.

Exit codes: 0 all held; 1 a job failed; 2 the command line is wrong.
TEXT
}

# read_soak_line [ARGUMENT...]: sets soak_seconds (empty: no limit) and soak_jobs. Help ends the script, and so does misuse.
read_soak_line() {
  local seconds
  soak_seconds='' soak_jobs=("${kSoakJobs[@]}")
  while [ $# -gt 0 ]; do
    case $1 in
      -h | --help) soak_usage; exit 0 ;;
      --for)
        read_time soak "${2:-}"
        soak_seconds=$seconds
        shift
        ;;
      --job)
        [[ ${2:-} =~ ^[a-z]+$ && " ${kSoakJobs[*]} " = *" $2 "* ]] ||
          misuse "./dev soak --job takes one of: ${kSoakJobs[*]}; here is: ${2:-nothing}"
        soak_jobs=("$2")
        shift
        ;;
      *) misuse "./dev soak takes --for TIME and --job NAME; here is: $1" ;;
    esac
    shift
  done
}

[ "${BASH_SOURCE[0]}" = "$0" ] || return 0
bin=$1
shift
read_soak_line "$@"
cd "$kSource"

length=(--whole)
[ -z "$soak_seconds" ] || length=(--for "$(((soak_seconds + ${#soak_jobs[@]} - 1) / ${#soak_jobs[@]}))")
report=$PWD/build/soak.txt
rm -f "$report"
failed=()
for job in "${soak_jobs[@]}"; do
  say "job $job"
  Scripts/lab.sh --own-network Scripts/soak-job.sh "$bin" "$job" "${length[@]}" --report "Z:$report" || failed+=("$job")
done
printf '%-12s%10s %-18s%6s%12s%10s%14s%16s\n' job number of s handles threads 'private KiB' 'working KiB'
cat "$report" 2>/dev/null || true
rm -f "$report"
[ ${#failed[@]} -eq 0 ] || { say "failed: ${failed[*]}"; exit 1; }
