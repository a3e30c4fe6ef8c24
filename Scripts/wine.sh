#!/bin/bash
# Runs a Windows program under the Wine that lab.sh started. The shim is preloaded here, not for the whole shell, so
# that only Wine sees it.
LD_PRELOAD=$LAB_SHIM exec /usr/bin/wine "$@"
