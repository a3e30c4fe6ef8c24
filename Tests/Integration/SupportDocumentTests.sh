#!/bin/bash
# Docs/support.md shows what qela does, but for the case that waits for a silent host.
. "$(dirname "$0")/lab.sh"
. "$(dirname "$0")/document.sh"
. "$(dirname "$0")/support-document.sh"
shopt -s extglob

run_document "$tests/../../Docs/support.md" '!(3.*)'
