#!/bin/bash
# Makes the Wine prefix that every run copies. Runs once, inside the root, while the toolchain is made.
set -euo pipefail
export WINEPREFIX=$LAB_TEMPLATE LD_PRELOAD=$LAB_SHIM
wineboot -i </dev/null >/dev/null 2>&1
# A crash in a test must end at once with its exit code instead of starting a debugger.
wine reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug' /v Debugger /d false /f </dev/null >/dev/null 2>&1
wineserver -k
wineserver -w
