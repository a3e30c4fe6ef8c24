#!/bin/bash
# Docs/log.md shows the log of a real calculation.
. "$(dirname "$0")/lab.sh"
. "$(dirname "$0")/document.sh"

run_document "$tests/../../Docs/log.md"
