#!/bin/bash
# Docs/criteria.md shows what qela does.
. "$(dirname "$0")/lab.sh"
. "$(dirname "$0")/document.sh"

run_document "$tests/../../Docs/criteria.md"
