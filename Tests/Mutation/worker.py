"""Runs test programs in its lab, one job a line of standard input, and answers each with a line.

A job names the switch's number and steps, each some tests of one program in one process; it ends at the first step that
is red. A step that takes too long is red as well: what hangs is noticed.
"""

from __future__ import annotations

import json
import os
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BIN = ROOT / "build/mingw-release/bin"


def run(step: dict, environment: dict[str, str]) -> dict:
    """One process. Its answer: whether it was green, how long it took, and what it said where it was not."""
    with tempfile.NamedTemporaryFile("w", suffix=".flags") as flags, tempfile.TemporaryFile("w+b") as out:
        flags.write("--gtest_filter=" + ":".join(step["tests"]) + "\n--gtest_brief=1\n" + ("" if step.get("whole") else "--gtest_fail_fast\n"))
        flags.flush()
        began = time.monotonic()
        process = subprocess.Popen(
            [ROOT / "Scripts/test-program.sh", BIN / f"{step['program']}.exe", f"--gtest_flagfile=Z:{flags.name}"],
            cwd=BIN, env={**os.environ, **environment}, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.STDOUT,
            start_new_session=True)
        try:
            code: int | None = process.wait(step["limit"])
        except subprocess.TimeoutExpired:
            code = None
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()
        seconds = time.monotonic() - began
        out.seek(0)
        said = out.read()[-4000:].decode(errors="replace")
    failed = [line.split()[-1] if "ms)" not in line else line.split("]")[1].split()[0].rstrip(",")
              for line in said.splitlines() if line.startswith("[  FAILED  ]")]
    return {"green": code == 0, "hung": code is None, "seconds": round(seconds, 2),
            "by": failed[0] if failed else step["tests"][0] if len(step["tests"]) == 1 else step["program"],
            "said": said if code else ""}


def main() -> None:
    for line in sys.stdin:
        job = json.loads(line)
        answer: dict = {}
        for step in job["steps"]:
            answer = run(step, job["environment"])
            if not answer["green"] and step.get("alone") and len(step["tests"]) > 1 and answer["seconds"] < 3:
                # In one process a test may fail for what the one before it has left: what fails by itself counts. Not
                # asked again where the test has waited for what did not come: together these pass without a fault.
                for test in sorted(step["tests"], key=lambda test: test != answer["by"]):
                    answer = run({**step, "tests": [test]}, job["environment"])
                    if not answer["green"]:
                        break
            if not answer["green"]:
                break
        print(json.dumps({"id": job["id"], **answer}), flush=True)


if __name__ == "__main__":
    main()
