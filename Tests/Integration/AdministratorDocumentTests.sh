#!/bin/bash
# Docs/administrator.md shows what qela does.
. "$(dirname "$0")/lab.sh"
. "$(dirname "$0")/document.sh"

run_document "$tests/../../Docs/administrator.md"
