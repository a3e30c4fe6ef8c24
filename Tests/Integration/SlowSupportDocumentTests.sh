#!/bin/bash
# Docs/support.md shows what qela does where a host keeps silent.
. "$(dirname "$0")/lab.sh"
. "$(dirname "$0")/document.sh"
. "$(dirname "$0")/support-document.sh"

run_document "$tests/../../Docs/support.md" '3.*'
