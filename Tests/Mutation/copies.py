"""Writes the copies of the sources with the switches of all faults, and drops the faults that do not compile."""

from __future__ import annotations

import re

from collections import defaultdict
from concurrent.futures import ProcessPoolExecutor
from pathlib import Path

from clang import cindex

import faults
from faults import Fault

INCLUDE = '#include "Tests/Mutation/QeLaMutant.h"'


class Copy:
    """One source with the switches of its faults. Its lines keep the numbers that they have in the source."""

    def __init__(self, root: Path, path: str, found: list[Fault]) -> None:
        self.root, self.path, self.alive = root, path, found
        self.write()

    def write(self) -> None:
        text = (self.root / self.path).read_text()
        body, spans = faults.render(text, self.alive)
        if not self.alive:
            head = b""
        elif self.path.endswith(".h"):  # warnings about a fault are not to stop what includes it
            comment, body = body.split(b"#pragma once\n", 1)
            head = comment + b"#pragma once\n#pragma GCC system_header\n" + INCLUDE.encode()
            head += b"\n#line %d\n" % (comment.count(b"\n") + 2)
            spans = [(one, start - len(comment) - 13, end - len(comment) - 13) for one, start, end in spans]
        else:
            head = INCLUDE.encode() + b"\n#line 1\n"
        self.bytes = head + body
        self.spans = [(one, start + len(head), end + len(head)) for one, start, end in spans]

    def drop(self, offsets: list[int]) -> None:
        """The innermost faults there; where there is none, those of the line."""
        out = set()
        for at in offsets:
            around = [span for span in self.spans if span[1] <= at < span[2]]
            if around:
                out.add(min(around, key=lambda span: span[2] - span[1])[0])
                continue
            begin, end = self.bytes.rfind(b"\n", 0, at), self.bytes.find(b"\n", at)
            out |= {span[0] for span in self.spans if span[1] < end and begin < span[2]}
        if not out:
            raise SystemExit(f"{self.path} does not compile, and no fault is to blame: {[self.bytes[max(0, at - 200) : at + 60] for at in offsets]}")
        self.alive = [fault for fault in self.alive if fault.number not in out]
        self.write()


def compiling(root: Path, unit: cindex.TranslationUnit, copies: dict[str, Copy]) -> None:
    """Drops the faults of the copies that do not compile in the unit."""
    while True:
        unit.reparse([(str(root / path), copy.bytes.decode()) for path, copy in copies.items()],
                     options=cindex.TranslationUnit.PARSE_PRECOMPILED_PREAMBLE)
        bad: dict[str, list[int]] = defaultdict(list)
        for error in faults.errors_of(unit):
            for one in [error, *error.children]:  # what is wrong in a template of the standard's is told in notes
                path = str(one.location.file).removeprefix(f"{root}/")
                if path in copies:
                    bad[path].append(faults.file_offset(one.location)[1])
                    break
            else:
                raise SystemExit(f"{unit.spelling}: {error}")
        if not bad:
            return
        for path, offsets in bad.items():
            copies[path].drop(offsets)


def faults_of(root: Path, commands: list[dict], path: str, headers: list[Fault]) -> tuple[list[Fault], list[Fault], set[int]]:
    """All faults of a source, those that compile, and the numbers of those in headers that compile here too."""
    unit = faults.parse(root, commands, path)
    every = faults.choose(root, unit, [path])
    named = {str(Path(one.include.name).resolve()) for one in unit.get_includes()}
    mine = {path: Copy(root, path, every)}
    for header in {fault.path for fault in headers}:
        if str(root / header) in named:
            mine[header] = Copy(root, header, [fault for fault in headers if fault.path == header])
    compiling(root, unit, mine)
    refused_here = {fault.number for fault in headers if fault.path in mine and fault not in mine[fault.path].alive}
    return every, mine[path].alive, refused_here


def faults_of_headers(root: Path, commands: list[dict], paths: list[str]) -> tuple[list[Fault], list[Fault]]:
    """The same of headers, in a unit that includes them all."""
    include = "".join(f'#include "{path}"\n' for path in paths).encode()
    unit = faults.parse(root, commands, "FwClient/Service/QeLaLib/AllHeaders.cpp", b"#include <winsock2.h>\n" + include)
    every = faults.choose(root, unit, paths)
    copies = {path: Copy(root, path, [fault for fault in every if fault.path == path]) for path in paths}
    unit_text = (b"#include <winsock2.h>\n" + include).decode()
    compiling_with = {path: copy for path, copy in copies.items() if copy.alive}
    compiling(root, Unsaved(unit, str(root / "FwClient/Service/QeLaLib/AllHeaders.cpp"), unit_text), compiling_with)
    return every, [fault for copy in copies.values() for fault in copy.alive]


class Unsaved:
    """A unit whose main file is in no folder."""

    def __init__(self, unit: cindex.TranslationUnit, path: str, text: str) -> None:
        self.unit, self.path, self.text, self.spelling = unit, path, text, path

    def reparse(self, unsaved: list[tuple[str, str]], options: int) -> None:
        self.unit.reparse([*unsaved, (self.path, self.text)], options=options)

    @property
    def diagnostics(self) -> object:
        return self.unit.diagnostics


def choose(root: Path, commands: list[dict], jobs: int) -> tuple[list[Fault], list[Fault]]:
    """All faults, numbered in the order of the sources, and those of them that compile."""
    paths = faults.sources(root)
    headers = [path for path in paths if path.endswith(".h")]
    every, alive = faults_of_headers(root, commands, headers)
    with ProcessPoolExecutor(jobs) as pool:
        running = [pool.submit(faults_of, root, commands, path, alive) for path in paths if path not in headers]
        for one in running:
            some, compile_here, refused_here = one.result()
            base = len(every)
            alive = [fault for fault in alive if fault.number not in refused_here]
            for fault in compile_here:
                fault.number += base
            numbers = {fault.number for fault in compile_here}
            for at, fault in enumerate(some, base + 1):
                fault.number = at
            every += some
            alive += [fault for fault in some if fault.number in numbers]
    return every, alive


def refused(root: Path, log: str, found: list[Fault]) -> list[Fault]:
    """Without those on lines that the compiler of what ships refuses."""
    lines = {(match[1], int(match[2])) for match in re.finditer(r"^(?:/src/)?(\S+):(\d+):\d+: error:", log, re.MULTILINE)}
    out = set()
    for fault in found:
        text = (root / fault.path).read_bytes()
        for wrap in fault.wraps:
            first, last = (text.count(b"\n", 0, at) + 1 for at in (wrap.start, wrap.end))
            if any((fault.path, line) in lines for line in range(first, last + 1)):
                out.add(fault.number)
    return [fault for fault in found if fault.number not in out]


def write_copies(root: Path, target: Path, found: list[Fault]) -> None:
    """Everything in the folders of the sources; a file only where it differs, so that nothing is built twice."""
    by_path: dict[str, list[Fault]] = defaultdict(list)
    for fault in found:
        by_path[fault.path].append(fault)
    if target.exists():
        for copy in [path for path in target.rglob("*") if path.is_file() and not (root / path.relative_to(target)).exists()]:
            copy.unlink()
    for folder in faults.COPIED:
        for path in (root / folder).rglob("*"):
            if not path.is_file():
                continue
            name = str(path.relative_to(root))
            new = Copy(root, name, by_path[name]).bytes if name in by_path else path.read_bytes()
            copy = target / name
            copy.parent.mkdir(parents=True, exist_ok=True)
            if not copy.exists() or copy.read_bytes() != new:
                copy.write_bytes(new)
