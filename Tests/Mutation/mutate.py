"""What Scripts/mutate.sh runs: puts the faults into copies, builds them, and runs the tests that pass each."""

from __future__ import annotations

import argparse
import hashlib
import json
import os
import re
import subprocess
import sys
import threading
import time
from collections import Counter, defaultdict
from dataclasses import dataclass
from pathlib import Path

import copies
import faults
from faults import Fault

ROOT = Path(__file__).resolve().parents[2]
WORK = ROOT / "build/mutation"
WITH_COPIES = ROOT / "Tests/Mutation/with-copies.sh"
PROGRAMS = ("UnitTests", "ContractTests", "KitTests")
# One test a process there: the library keeps one instance a process.
ALONE = ("ContractTests", "KitTests")
WORKERS = 4  # some tests wait most of their time
SLOWEST_MS = 4000  # a test that takes longer judges last, and only what few tests pass
FEW_PASSED = 600  # faults that such a test passes at most
QUICK_MS = 400  # what takes longer comes last, and only
MOST_SLOW = 3  # so many of it for one fault
MOST_ALONE = 30  # tests of the kind that takes a process each, for one fault


def say(text: str) -> None:
    print(f"dev: {text}", file=sys.stderr, flush=True)


def fail(text: str) -> None:
    print(f"dev: error: {text}", file=sys.stderr)
    raise SystemExit(1)


def digest(paths: list[Path]) -> str:
    whole = hashlib.sha256()
    for path in sorted(paths):
        whole.update(str(path.relative_to(ROOT)).encode() + b"\0" + path.read_bytes() + b"\0")
    return whole.hexdigest()[:16]


def files(*folders: str) -> list[Path]:
    return [path for folder in folders for path in (ROOT / folder).rglob("*") if path.is_file() and
            "__pycache__" not in path.parts and path.suffix != ".txt"]


# --- The faults, and the build of the copies.

def prepare() -> list[Fault]:
    """The faults that compile, as they are in the copies: chosen anew where a source has changed."""
    WORK.mkdir(parents=True, exist_ok=True)
    key_file, kept = WORK / "faults.key", WORK / "faults.json"
    key = digest(files(*faults.FOLDERS) + [ROOT / "Tests/Mutation" / name for name in ("faults.py", "copies.py")])
    if kept.exists() and key_file.exists() and key_file.read_text() == key:
        return faults.load(kept)
    commands = json.loads((ROOT / "build/mingw-release/compile_commands.json").read_text())
    say("choosing the faults")
    every, found = copies.choose(ROOT, commands, WORKERS)
    say(f"{len(every)} faults, of which {len(found)} compile")
    key_file.unlink(missing_ok=True)
    compile_here = {fault.number for fault in found}
    (WORK / "dropped.txt").write_text("".join(f"{one.name}\n" for one in every if one.number not in compile_here))
    faults.save(found, kept)
    for path in WORK.glob("passed.*"):
        path.unlink()
    key_file.write_text(key)
    return found


def with_copies(*command: str | Path, **options: object) -> subprocess.CompletedProcess:
    return subprocess.run([WITH_COPIES, *command], text=True, **options)  # type: ignore[call-overload]


def build(found: list[Fault]) -> list[Fault]:
    """Builds the test programs from the copies; without the faults that only this compiler refuses."""
    while True:
        copies.write_copies(ROOT, WORK / "src", found)
        say("building the copies")
        configured = with_copies("cmake", "--preset", "mingw-release",
                                 f"-DCMAKE_PROJECT_QeLaLib_INCLUDE={ROOT}/Tests/Mutation/options.cmake",
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if configured.returncode != 0:
            fail(f"the copies could not be configured:\n{configured.stdout}")
        built = with_copies("cmake", "--build", "build/mingw-release", "--target", *PROGRAMS, "--", "-k", "0",
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, cwd=ROOT)
        (WORK / "build.log").write_text(built.stdout)
        if built.returncode == 0:
            return found
        fewer = copies.refused(ROOT, built.stdout, found)
        if len(fewer) == len(found):
            fail(f"the copies could not be built (whole log: {WORK}/build.log):\n" + "\n".join(
                re.findall(r".*error.*", built.stdout)[:10]))
        with (WORK / "dropped.txt").open("a") as dropped:
            dropped.writelines(f"{one.name}\n" for one in found if one not in fewer)
        say(f"{len(found) - len(fewer)} faults do not compile here and are left out")
        found = fewer
        faults.save(found, WORK / "faults.json")


# --- The labs.

class Labs:
    """Workers, each with a Wine of its own; jobs are done in their order."""

    def run(self, jobs: list[dict], done) -> None:  # noqa: ANN001 - a function of one answer
        waiting, lock = iter(jobs), threading.Lock()

        def work() -> None:
            with subprocess.Popen([WITH_COPIES, ROOT / "Scripts/lab.sh", "python3", ROOT / "Tests/Mutation/worker.py"],
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, cwd=ROOT) as lab:
                while True:
                    with lock:
                        job = next(waiting, None)
                    if job is None:
                        lab.stdin.close()
                        return
                    lab.stdin.write(json.dumps(job) + "\n")
                    lab.stdin.flush()
                    answer = lab.stdout.readline()
                    if not answer:
                        say("a lab has ended")
                        return
                    with lock:
                        done(json.loads(answer))

        threads = [threading.Thread(target=work) for _ in range(WORKERS)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()


# --- Which tests pass which fault.

@dataclass
class Test:
    program: str
    name: str
    ms: int
    green: bool
    passes: frozenset[int]


def list_tests(program: str) -> list[str]:
    listed = with_copies(ROOT / "Scripts/lab.sh", ROOT / "Scripts/wine.sh", ROOT / f"build/mingw-release/bin/{program}.exe",
                         "--gtest_list_tests", stdout=subprocess.PIPE, check=True, cwd=ROOT).stdout
    names, suite = [], ""
    for line in listed.splitlines():
        if line.startswith("  "):
            names.append(suite + line.split("#")[0].strip())
        elif line.split("#")[0].strip().endswith("."):
            suite = line.split("#")[0].strip()
    return [name for name in names if "DISABLED_" not in name]


def recorded(program: str) -> dict[str, Test]:
    tests = {}
    for path in WORK.glob(f"passed.{program}.*"):
        for line in path.read_text().splitlines():
            name, ms, result, marks = line.split("\t")
            tests[name] = Test(program, name, int(ms), result == "passed", frozenset(int(one) for one in marks.split()))
    return tests


def record() -> list[Test]:
    """Runs every test that has not been recorded yet with no fault on: green ones judge the faults that they pass."""
    every: list[Test] = []
    jobs, tests_of = [], {}
    for program in PROGRAMS:
        known = recorded(program)
        tests_of[program] = list_tests(program)
        new = [name for name in tests_of[program] if name not in known]
        size = 1 if program in ALONE else 60
        jobs += [{"program": program, "tests": new[at : at + size], "limit": 300, "whole": True} for at in range(0, len(new), size)]
    if jobs:
        say(f"recording what {sum(len(job['tests']) for job in jobs)} tests pass")
    answered = [0]

    def done(_: dict) -> None:
        answered[0] += 1
        if answered[0] % 50 == 0:
            say(f"{answered[0]} of {len(jobs)} processes")

    Labs().run([{"id": at, "steps": [job], "environment": {
        "QELA_MUTANT_RECORDS": "1", "QELA_MUTANT_RECORDS_TO": f"Z:{WORK}/passed.{job['program']}.{time.time_ns()}-{at}"}} for at, job in enumerate(jobs)], done)
    for program in PROGRAMS:
        known = recorded(program)
        every += [known[name] for name in tests_of[program] if name in known]
    return every


def sociable(tests: list[Test]) -> set[str]:
    """The suites of which several tests may share a process although each usually has its own: they pass together."""
    kept = WORK / "sociable.json"
    known: dict[str, bool] = json.loads(kept.read_text()) if kept.exists() else {}
    suites: dict[tuple[str, str], list[str]] = defaultdict(list)
    for one in tests:
        if one.program in ALONE and one.green and one.ms <= SLOWEST_MS:
            suites[one.program, suite_of(one)].append(one.name)
    new = [key for key in suites if f"{key}{len(suites[key])}" not in known]

    def done(answer: dict) -> None:
        key = new[answer["id"]]
        known[f"{key}{len(suites[key])}"] = answer["green"]

    Labs().run([{"id": at, "steps": [{"program": key[0], "tests": suites[key], "limit": 60}],
                 "environment": {"QELA_MUTANT": "0"}} for at, key in enumerate(new)], done)
    kept.write_text(json.dumps(known))
    return {key[1] for key in suites if known.get(f"{key}{len(suites[key])}")}


def suite_of(test: Test) -> str:
    return test.name.partition(".")[0]


# --- Judging.

def own(test: Test, fault: Fault) -> bool:
    return test.name.split("/")[-1 if test.name.count("/") > 1 else 0].startswith(fault.unit)


def steps_for(fault: Fault, tests: list[Test], together: set[str], thorough: bool) -> list[dict]:
    """What runs for a fault: the unit's own tests first, then what passes it, and one a process what has to be."""
    usable = [one for one in tests if one.green and (one.ms <= SLOWEST_MS or thorough and len(one.passes) < FEW_PASSED)]
    reaching = [one for one in usable if fault.number in one.passes]
    if not reaching:
        return []
    near = lambda one: (not own(one, fault), len(one.passes), one.ms)  # noqa: E731
    slow = sorted((one for one in reaching if one.ms > QUICK_MS), key=near)
    usable, reaching = ([one for one in some if one.ms <= QUICK_MS] for some in (usable, reaching))
    groups: list[list[Test]] = []
    mine = [one for one in usable if one.program not in ALONE and own(one, fault)]
    others = sorted((one for one in reaching if one.program not in ALONE and one not in mine), key=lambda one: one.ms)
    groups += [mine] if mine else []
    groups += [others[at : at + 150] for at in range(0, len(others), 150)]
    alone = sorted((one for one in reaching if one.program in ALONE), key=near)
    if not thorough and len(alone) > MOST_ALONE:  # the nearest half, and evenly of the rest
        half = MOST_ALONE // 2
        rest = alone[half:]
        alone = alone[:half] + [rest[at * len(rest) // half] for at in range(half)]
    by_suite: dict[str, list[Test]] = {}
    for one in alone:
        by_suite.setdefault(suite_of(one) if suite_of(one) in together else one.name, []).append(one)
    groups += by_suite.values()
    groups += [[one] for one in slow[: None if thorough else MOST_SLOW]]
    return [{"program": group[0].program, "tests": [one.name for one in group], "alone": group[0].program in ALONE,
             "limit": 15 + 10 * sum(one.ms for one in group) / 1000} for group in groups]


def sample(found: list[Fault], seed: int) -> list[Fault]:
    """In an order in which the first thousand are spread over all units and kinds, and stay the same where sources change."""
    def chance(*names: str) -> bytes:
        return hashlib.sha256("\0".join((str(seed), *names)).encode()).digest()

    strata: dict[tuple[str, str], list[Fault]] = defaultdict(list)
    for fault in sorted(found, key=lambda one: chance(one.name)):
        strata[fault.unit, fault.kind].append(fault)
    order = sorted(strata, key=lambda names: chance(*names))
    rounds = max(map(len, strata.values()), default=0)
    return [strata[name][turn] for turn in range(rounds) for name in order if turn < len(strata[name])]


def equivalents() -> dict[str, str]:
    """What cannot be noticed, by the fault's name, with the reason. "name | reason", one a line."""
    known = {}
    for line in (ROOT / "Tests/Mutation/equivalent.txt").read_text().splitlines():
        if line and not line.startswith("#"):
            name, bar, reason = line.partition(" | because ")
            if not bar or not reason:
                fail(f'Tests/Mutation/equivalent.txt: write "fault | because reason"; here is: {line}')
            known[name] = reason
    return known


class Results:
    """What was found out, kept between runs: as long as the source has not changed, and for survivors the tests neither."""

    def __init__(self) -> None:
        self.path = WORK / "results.jsonl"
        self.tests = digest(files("Tests/Unit", "Tests/Contract", "Tests/Kit", "Tests/Support"))
        self.sources = {path: digest([ROOT / path]) for path in faults.sources(ROOT)}
        self.known: dict[str, dict] = {}
        for line in self.path.read_text().splitlines() if self.path.exists() else []:
            one = json.loads(line)
            if self.sources.get(one["path"]) == one["source"] and (one["result"] == "killed" or one["tests"] == self.tests):
                self.known[one["name"]] = one

    def add(self, fault: Fault, result: str, **more: object) -> None:
        one = {"name": fault.name, "path": fault.path, "kind": fault.kind, "source": self.sources[fault.path],
               "tests": self.tests, "result": result, **more}
        self.known[fault.name] = one
        with self.path.open("a") as out:
            out.write(json.dumps(one) + "\n")


def judge(wanted: list[Fault], tests: list[Test], together: set[str], thorough: bool, results: Results) -> None:
    by_number = {fault.number: fault for fault in wanted}
    jobs = []
    for fault in wanted:
        one = results.known.get(fault.name)
        if one and not (thorough and one["result"] == "survived" and not one["thorough"]):
            continue
        steps = steps_for(fault, tests, together, thorough)
        if steps:
            jobs.append({"id": fault.number, "steps": steps, "environment": {"QELA_MUTANT": str(fault.number)}})
        else:
            results.add(fault, "not reached")
    if jobs:
        say(f"judging {len(jobs)} faults")
    count: Counter[str] = Counter()

    def done(answer: dict) -> None:
        fault = by_number[answer["id"]]
        result = "survived" if answer["green"] else "killed"
        results.add(fault, result, by="" if answer["green"] else answer["by"], hung=answer["hung"],
                    said=answer["said"], thorough=thorough)
        count[result] += 1
        if count.total() % 100 == 0:
            say(f"{count.total()} of {len(jobs)}: {count['killed']} killed, {count['survived']} survived")

    Labs().run(jobs, done)


def report(wanted: list[Fault], results: Results) -> int:
    listed = equivalents()
    table: dict[str, Counter[str]] = defaultdict(Counter)
    survivors = []
    for fault in wanted:
        one = results.known.get(fault.name)
        result = one["result"] if one else "not judged"
        if result == "survived" and fault.name in listed:
            result = "equivalent"
        elif result == "survived":
            survivors.append(fault)
        elif result == "killed" and one["hung"]:
            table[fault.kind]["of these hung"] += 1
        table[fault.kind][result] += 1
    columns = ["killed", "of these hung", "equivalent", "survived", "not reached", "not judged"]
    print(f"{'kind':24}" + "".join(f"{name:>15}" for name in columns))
    for kind in sorted(table):
        print(f"{kind:24}" + "".join(f"{table[kind][name]:15}" for name in columns))
    total = sum(table.values(), Counter())
    print(f"{'all':24}" + "".join(f"{total[name]:15}" for name in columns))
    for heading, some in (("No test reaches", [fault for fault in wanted if results.known.get(fault.name, {}).get("result") == "not reached"]),
                          ("Survived", survivors)):
        if some:
            print(f"\n{heading}:")
        for fault in sorted(some, key=lambda one: one.number):
            print(f"  {fault.number:5} {fault.path}:{fault.line}: {fault.name.split(': ', 1)[1]}")
    judged_killed = {name for name, one in results.known.items() if one["result"] == "killed"}
    for name in sorted(set(listed) & judged_killed):
        print(f"\nTests/Mutation/equivalent.txt names a fault that a test notices: {name}")
    return 1 if survivors or set(listed) & judged_killed else 0


def main() -> int:
    parser = argparse.ArgumentParser()
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=1000)
    parser.add_argument("--unit")
    parser.add_argument("--mutant", type=int)
    parser.add_argument("--list", action="store_true")
    asked = parser.parse_args()
    found = prepare()
    if asked.unit:
        units = sorted({fault.unit for fault in found})
        if asked.unit not in units:
            print(f"dev: error: there is no unit {asked.unit}. There are: {', '.join(units)}", file=sys.stderr)
            return 2
    some = [fault for fault in found if asked.unit in (None, fault.unit) and asked.mutant in (None, fault.number)]
    if asked.mutant is not None and not some:
        print(f"dev: error: there is no fault {asked.mutant}. ./dev mutate --list names them.", file=sys.stderr)
        return 2
    wanted = sorted(some, key=lambda one: one.number) if asked.mutant else sample(some, asked.seed)[: asked.count]
    if asked.list:
        for fault in sorted(some, key=lambda one: one.number):
            print(f"{fault.number:5} {fault.path}:{fault.line}: {fault.name.split(': ', 1)[1]}")
        return 0
    before = {fault.number for fault in found}
    found = build(found)
    gone = before - {fault.number for fault in found}
    wanted = [fault for fault in wanted if fault.number not in gone]
    tests = record()
    say(f"{sum(one.green for one in tests)} of {len(tests)} tests are green without a fault; "
        f"{sum(one.green and one.ms > SLOWEST_MS for one in tests)} of these are slow")
    results = Results()
    if asked.mutant:
        for fault in wanted:
            results.known.pop(fault.name, None)
    together = sociable(tests)
    judge(wanted, tests, together, False, results)
    listed = equivalents()
    survived = [fault for fault in wanted if results.known.get(fault.name, {}).get("result") == "survived"]
    judge([fault for fault in survived if fault.name not in listed], tests, together, True, results)
    if asked.mutant and wanted:
        print(results.known[wanted[0].name].get("said", ""))
    return report(wanted, results)


if __name__ == "__main__":
    sys.exit(main())
