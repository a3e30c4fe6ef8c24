"""Chooses the faults: reads the sources with libclang and tells where each fault goes and what it makes of the text.

A fault is one or more wraps of a stretch of text. INNER in a wrap's template stands for the text inside, with the faults
that lie there; SWITCH is where it is switched. A fault that needs another text in the place of what is there takes the
text without the faults inside, since one fault is on at a time. No wrap adds a line: log lines name theirs.
"""

from __future__ import annotations

import ctypes
import json
import re
import shlex
from bisect import bisect
from dataclasses import asdict, dataclass, field
from functools import cached_property
from pathlib import Path

from clang import cindex
from clang.cindex import BinaryOperator as Op
from clang.cindex import CursorKind as Kind
from clang.cindex import TypeKind

FOLDERS = ("FwClient",)
COPIED = ("FwClient", "QeLaC", "HostLibraries")
SWITCH = "QeLaMutant(@)"
INNER = "\0"

RELATIONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "/", "<<": ">>", ">>": "<<", "&": "|", "|": "&", "^": "&",
              "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|=", "<<=": ">>=", ">>=": "<<="}
LOGIC = {"&&": "||", "||": "&&"}
RELEASES = re.compile(r"\b\w*(Close|Free|Release|Leave|Unlock|unlock|Delete|delete|Cancel|reset|Revert|Cleanup|Uninit|"
                      r"SecureZero|Clear|clear)\w*\s*\(|\bdelete\b")
BRACKETS = re.compile(rb'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])+\'|//[^\n]*|[(){}\[\]]')
GUARDS = re.compile(r"(Guard|lock_guard|unique_lock|Finish)\b")


@dataclass
class Wrap:
    start: int
    end: int
    template: str


@dataclass
class Fault:
    number: int
    path: str
    line: int
    kind: str
    function: str
    change: str
    wraps: list[Wrap] = field(repr=False)

    @property
    def unit(self) -> str:
        return Path(self.path).stem

    @property
    def name(self) -> str:
        """What stays the same while other lines change: how equivalent.txt names a fault."""
        return f"{Path(self.path).name}: {self.function}: {self.kind}: {self.change}"


def flat(text: str) -> str:
    """The text on one line, without comments."""
    return re.sub(r"\s+", " ", re.sub(r'("(?:\\.|[^"\\])*")|//[^\n]*', lambda match: match[1] or " ", text)).strip()


class Source:
    """The faults of one file."""

    def __init__(self, path: str, text: str) -> None:
        self.path = path
        self.bytes = text.encode()  # libclang counts bytes
        self.found: dict[tuple[int, int, str, str], Fault] = {}
        self.function = ""

    def text(self, start: int, end: int) -> str:
        return self.bytes[start:end].decode()

    def add(self, kind: str, change: str, *wraps: Wrap) -> None:
        key = (wraps[-1].start, wraps[-1].end, kind, change)
        if key not in self.found:
            line = self.bytes.count(b"\n", 0, wraps[-1].start) + 1
            self.found[key] = Fault(0, self.path, line, kind, self.function, change, list(wraps))

    def wrap(self, kind: str, span: tuple[int, int], change: str, template: str) -> None:
        self.add(kind, change, Wrap(*span, template))

    def replace(self, kind: str, span: tuple[int, int], new: str) -> None:
        self.wrap(kind, span, f"{flat(self.text(*span))} -> {flat(new)}", f"({SWITCH} ? ({flat(new)}) : ({INNER}))")

    # Where brackets open and close: the offset behind it, and the innermost bracket that is open from there on.
    @cached_property
    def brackets(self) -> list[tuple[int, int]]:
        opened, found = [], [(0, -1)]
        for match in BRACKETS.finditer(self.bytes):
            if match[0] in (b"(", b"[", b"{"):
                opened.append(match.start())
            elif match[0] in (b")", b"]", b"}") and opened:
                opened.pop()
            else:
                continue
            found.append((match.end(), opened[-1] if opened else -1))
        return found

    # The innermost bracket that is open there, or -1.
    def innermost(self, at: int) -> int:
        return self.brackets[bisect(self.brackets, (at, len(self.bytes))) - 1][1]

    # Behind the other end of the bracket at `start`.
    def closing(self, start: int) -> int:
        outer = self.innermost(start)
        first = bisect(self.brackets, (start, len(self.bytes))) + 1
        return next((at for at, inner in self.brackets[first:] if inner == outer), len(self.bytes))


def file_offset(location: cindex.SourceLocation) -> tuple[str | None, int]:
    """Where it stands in a file: arguments of macros where they are written, what macros bring at the macro's name."""
    handle, line, column, offset = ctypes.c_void_p(), ctypes.c_uint(), ctypes.c_uint(), ctypes.c_uint()
    cindex.conf.lib.clang_getFileLocation(location, ctypes.byref(handle), ctypes.byref(line), ctypes.byref(column),
                                          ctypes.byref(offset))
    if not handle:
        return None, 0
    name = cindex.conf.lib.clang_getFileName(handle)
    return str(name), offset.value


class Walker:
    """Walks through the code of one file in one translation unit."""

    def __init__(self, source: Source, absolute: str) -> None:
        self.source = source
        self.absolute = absolute

    def span(self, node: cindex.Cursor) -> tuple[int, int] | None:
        name, start = file_offset(node.extent.start)
        if name != self.absolute:
            return None
        name, end = file_offset(node.extent.end)
        if name != self.absolute:
            return None
        if end <= start:  # made by a macro
            word = re.compile(rb"\w+").match(self.source.bytes, start)
            if not word:
                return None
            end = word.end()
            if self.source.bytes[end : end + 1] == b"(":
                end = self.source.closing(end)
        return start, end

    def text(self, node: cindex.Cursor) -> str:
        span = self.span(node)
        return self.source.text(*span) if span else ""

    def walk(self, node: cindex.Cursor) -> None:
        kind = node.kind
        if kind in (Kind.STATIC_ASSERT, Kind.ENUM_DECL, Kind.TYPE_REF, Kind.TEMPLATE_TYPE_PARAMETER, Kind.CASE_STMT):
            if kind == Kind.CASE_STMT:
                for child in list(node.get_children())[1:]:
                    self.statement(child)
            return
        span = self.span(node)
        if span is None:
            if kind in (Kind.TRANSLATION_UNIT, Kind.NAMESPACE, Kind.UNEXPOSED_DECL):
                for child in node.get_children():
                    self.walk(child)
            return
        text = self.source.text(*span)
        if text.startswith("FW_LOG("):
            self.log_line(span)
            return
        if kind == Kind.VAR_DECL and re.match(r"(static |inline )*constexpr\b", text):
            return
        outer = self.source.function
        if kind in (Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR, Kind.FUNCTION_TEMPLATE,
                    Kind.CONVERSION_FUNCTION):
            self.source.function = node.spelling
        self.expression(node, kind, span, text)
        self.conditions(node, kind, span)
        children = list(node.get_children())
        if kind == Kind.COMPOUND_STMT:
            self.order(children)
        for child in children:
            if kind in (Kind.COMPOUND_STMT, Kind.IF_STMT, Kind.FOR_STMT, Kind.WHILE_STMT, Kind.DO_STMT,
                        Kind.CXX_FOR_RANGE_STMT, Kind.DEFAULT_STMT):
                self.statement(child, node)
            else:
                self.walk(child)
        self.source.function = outer

    # A child of a statement: left out as a whole where it is one that does something.
    def statement(self, node: cindex.Cursor, parent: cindex.Cursor | None = None) -> None:
        span = self.span(node)
        if span and self.stands_alone(span):
            text = self.source.text(*span)
            left_out = f"({SWITCH} ? static_cast<void>(0) : static_cast<void>({INNER}))"
            if text.startswith("FW_LOG("):
                self.source.wrap("log line left out", span, flat(text), left_out)
            elif node.kind.is_expression():
                self.source.wrap(self.call_kind(node, text), span, flat(text), left_out)
            elif node.kind in (Kind.BREAK_STMT, Kind.CONTINUE_STMT) or text == "return":
                self.source.wrap("jump left out", span, text, f"if ({SWITCH}) {{}} else {INNER}")
        if node.kind == Kind.RETURN_STMT and span:
            self.returned(node, span)
        if node.kind == Kind.DECL_STMT and span:
            self.guard(node, span)
        self.walk(node)

    # Whether a semicolon follows, so that it is no condition and no part of a for statement's head.
    def stands_alone(self, span: tuple[int, int]) -> bool:
        before = self.source.bytes[: span[0]].rstrip()
        while before.split(b"\n")[-1].lstrip().startswith(b"//"):
            before = before[: before.rfind(b"\n")].rstrip()
        before = re.sub(rb"//[^\n]*$", b"", before).rstrip()
        follows = self.source.bytes[span[1] :].lstrip()[:1] == b";"
        if not follows:
            return False
        if before[-1:] in (b";", b"{", b"}", b":") or before.endswith((b"else", b"do")):
            return not self.in_parentheses(span[0])
        return before[-1:] == b")" and not self.in_parentheses(span[0])

    def in_parentheses(self, at: int) -> bool:
        opened = self.source.innermost(at)
        return opened >= 0 and self.source.bytes[opened : opened + 1] == b"("

    @staticmethod
    def call_kind(node: cindex.Cursor, text: str) -> str:
        if RELEASES.search(text):
            return "release left out"
        if node.kind == Kind.CXX_THROW_EXPR:
            return "jump left out"
        if node.kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR) or re.match(r"[\w.*>-]+ [|+-]?= ", text):
            return "assignment left out"
        return "call left out"

    # Two neighbouring calls change places: the second moves before the first.
    def order(self, children: list[cindex.Cursor]) -> None:
        for first, second in zip(children, children[1:]):
            spans = self.span(first), self.span(second)
            if not all(node.kind.is_expression() for node in (first, second)) or None in spans:
                continue
            if not all(self.stands_alone(span) for span in spans):
                continue
            if any(node.kind == Kind.CXX_THROW_EXPR for node in (first, second)):
                continue
            one, two = (flat(self.source.text(*span)) for span in spans)
            self.source.add(
                "order", f"{one}; {two} -> {two}; {one}",
                Wrap(spans[0][0], spans[0][0], f"({SWITCH} ? static_cast<void>({two}) : static_cast<void>(0)); "),
                Wrap(*spans[1], f"({SWITCH} ? static_cast<void>(0) : static_cast<void>({INNER}))"))

    def returned(self, node: cindex.Cursor, span: tuple[int, int]) -> None:
        values = list(node.get_children())
        if not values:
            return
        text = self.text(values[0])
        if self.is_bool(values[0]):
            if text not in ("true", "false"):
                self.condition(values[0])
        elif text not in ("{}", "nullptr", "0", "*this") and not re.fullmatch(r"[\w:]*\bk?[A-Z]\w*", text):
            self.source.wrap("returned value", span, f"{flat(self.source.text(*span))} -> return {{}}",
                             f"if ({SWITCH}) return {{}}; else {INNER}")

    def guard(self, node: cindex.Cursor, span: tuple[int, int]) -> None:
        variables = list(node.get_children())
        if len(variables) != 1 or variables[0].kind != Kind.VAR_DECL:
            return
        text = flat(self.source.text(*span)).rstrip(";")
        parts = re.fullmatch(r"(?:const )?([\w:<>]+) (\w+)(?:[({](.*)[)}])?", text)
        if not parts or not GUARDS.search(parts[1]):
            return
        if re.search(rf"\b{parts[2]}\b", self.source.text(span[1], self.source.closing(self.source.innermost(span[0])))):
            return  # used
        name = variables[0].type.spelling.removeprefix("const ") if "lock" in parts[1] else parts[1]
        arguments = f", {parts[3]}" if parts[3] else ""
        old = self.source.bytes[span[0] : span[1]]
        end = span[1] - (1 if old.endswith(b";") else 0)
        self.source.wrap("guard left out", (span[0], end), text,
                         f"const qela_mutation::Unless<{name}> {parts[2]}({SWITCH}{arguments})")

    @staticmethod
    def is_bool(node: cindex.Cursor) -> bool:
        return node.type.get_canonical().kind == TypeKind.BOOL

    # What decides: its parts where it is made of several, so that each is turned round.
    def condition(self, node: cindex.Cursor) -> None:
        span = self.span(node)
        if span is None:
            return
        children = list(node.get_children())
        inner = self.span(children[0]) if len(children) == 1 else None
        # What the compiler writes anew (`a != b` as `!(a == b)`) begins with the operator inside.
        if inner and node.kind in (Kind.PAREN_EXPR, Kind.UNEXPOSED_EXPR) and self.source.bytes[inner[0] : inner[0] + 1] not in b"!=<>":
            self.condition(children[0])
            return
        if node.kind == Kind.BINARY_OPERATOR and node.binary_operator in (Op.LAnd, Op.LOr):
            for child in children:
                self.condition(child)
            return
        text = self.source.text(*span)
        if text in ("true", "false") or text.startswith(("!=", "==")):
            return
        self.source.wrap("condition", span, f"{flat(text)} -> not so", f"(static_cast<bool>({INNER}) != {SWITCH})")

    def conditions(self, node: cindex.Cursor, kind: Kind, span: tuple[int, int]) -> None:
        children = list(node.get_children())
        if kind == Kind.CONDITIONAL_OPERATOR and children:
            self.condition(children[0])
            return
        if kind == Kind.DO_STMT and children:
            self.condition(children[-1])
            return
        if kind not in (Kind.IF_STMT, Kind.WHILE_STMT, Kind.FOR_STMT):
            return
        head = re.compile(rb"(if|while|for)\s*(constexpr)?\s*\(").match(self.source.bytes, span[0])
        if not head or head[2]:
            return
        begin, end = head.end() - 1, self.source.closing(head.end() - 1)
        inside = [(child, self.span(child)) for child in children]
        inside = [(child, place) for child, place in inside if place and begin < place[0] and place[1] <= end]
        if kind == Kind.FOR_STMT:
            semicolons = [begin + 1 + match.start() for match in re.finditer(rb";", self.source.bytes[begin + 1 : end])]
            if len(semicolons) < 2:
                return
            inside = [(child, place) for child, place in inside
                      if semicolons[0] < place[0] and place[1] <= semicolons[1]]
        declared = [place for child, place in inside if not child.kind.is_expression()]
        for child, place in reversed(inside):
            if child.kind.is_expression():
                if not any(one[0] <= place[0] < one[1] for one in declared):
                    self.condition(child)
                return

    def expression(self, node: cindex.Cursor, kind: Kind, span: tuple[int, int], text: str) -> None:
        source = self.source
        if kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR, Kind.CALL_EXPR):
            self.operator(node, kind, span)
        elif kind == Kind.UNARY_OPERATOR and (text.startswith(("++", "--")) or text.endswith(("++", "--"))):
            source.replace("bound", span, text.translate(str.maketrans("+-", "-+")))
        elif kind == Kind.CXX_BOOL_LITERAL_EXPR and text in ("true", "false"):
            source.wrap("flag", span, f"{text} -> {'false' if text == 'true' else 'true'}", f"({INNER} != {SWITCH})")
        elif kind == Kind.INTEGER_LITERAL:
            self.number(span, text)
        elif kind == Kind.CHARACTER_LITERAL and text.endswith("'"):
            source.wrap("constant", span, f"{text} -> the next character",
                        f"static_cast<decltype({text})>({INNER} + {SWITCH})")
        elif kind == Kind.STRING_LITERAL:
            self.literal(span, text)
        elif kind == Kind.DECL_REF_EXPR:
            self.named_constant(node, span, text)

    def number(self, span: tuple[int, int], text: str) -> None:
        if text in ("TRUE", "FALSE"):
            self.source.wrap("flag", span, f"{text} -> the other", f"static_cast<BOOL>({text} != {SWITCH})")
        elif re.fullmatch(r"[\w']+", text):
            self.source.wrap("constant", span, f"{text} -> {text} + 1", f"static_cast<decltype({text})>({INNER} + {SWITCH})")
            if text not in ("0", "1") and re.fullmatch(r"\d+", text):
                self.source.wrap("constant", span, f"{text} -> {text} - 1",
                                 f"static_cast<decltype({text})>({INNER} - {SWITCH})")

    def literal(self, span: tuple[int, int], text: str) -> None:
        changed = other_text(text)
        if changed is not None:
            self.source.replace("text", span, changed)

    def operator(self, node: cindex.Cursor, kind: Kind, span: tuple[int, int]) -> None:
        if kind == Kind.CALL_EXPR and not node.spelling.startswith("operator"):
            return
        spans = sorted(place for place in (self.span(child) for child in node.get_children()) if place)
        if len(spans) < 2:
            return
        left, right = spans[0], spans[-1]
        sign = self.source.text(left[1], right[0])
        name = flat(sign)
        for kind_name, table in (("bound", {sign: new for sign, new in RELATIONS.items() if sign[0] in "<>"}),
                                 ("condition", {"==": "!=", "!=": "=="}), ("logic", LOGIC), ("arithmetic", ARITHMETIC)):
            if name in table:
                old = flat(self.source.text(*span))
                new = flat(self.source.text(*left)) + f" {table[name]} " + flat(self.source.text(*right))
                if span[0] < left[0] or right[1] < span[1]:
                    return
                self.source.wrap(kind_name, span, f"{old} -> {new}", f"({SWITCH} ? ({new}) : ({INNER}))")

    def named_constant(self, node: cindex.Cursor, span: tuple[int, int], text: str) -> None:
        declared = node.referenced
        if declared is None or not re.fullmatch(r"[\w:]+", text):
            return
        if declared.kind == Kind.ENUM_CONSTANT_DECL:
            if text == "kLogInfo":
                return
            names = [one.spelling for one in declared.semantic_parent.get_children()]
            if len(names) > 1 and declared.spelling in names and text.endswith(declared.spelling):
                other = names[(names.index(declared.spelling) + 1) % len(names)]
                self.source.replace("constant", span, text[: len(text) - len(declared.spelling)] + other)
            return
        if declared.kind != Kind.VAR_DECL or not re.search(r"(^|::)k[A-Z]\w*$", text):
            return
        canonical = declared.type.get_canonical()
        if canonical.kind == TypeKind.CONSTANTARRAY:
            if canonical.element_type.kind in (TypeKind.WCHAR, TypeKind.CHAR_S):
                self.source.wrap("text", span, f"{text} -> {text} + 1", f"({INNER} + {SWITCH})")
        elif "basic_string_view" in canonical.spelling:
            self.source.wrap("text", span, f"{text} -> {text}.substr(1)", f"({INNER}).substr({SWITCH})")
        elif canonical.kind not in (TypeKind.RECORD, TypeKind.POINTER):
            for sign in "+-":
                self.source.wrap("constant", span, f"{text} -> {text} {sign} 1",
                                 f"static_cast<decltype({text})>({INNER} {sign} {SWITCH})")

    def log_line(self, span: tuple[int, int]) -> None:
        """FW_LOG(severity, text, arguments...), which the preprocessor has taken apart: read as text."""
        at = span[0] + len("FW_LOG(")
        end = self.source.closing(at - 1) - 1
        parts, begin = [], at
        while at < end:
            match = re.compile(rb'L?"(?:\\.|[^"\\])*"|L?\'(?:\\.|[^\'\\])+\'|[([{]|,').match(self.source.bytes, at)
            if not match:
                at += 1
            elif match[0] == b",":
                parts.append((begin, at))
                begin = at = at + 1
            elif match[0] in b"([{":
                at = self.source.closing(at)
            else:
                at = match.end()
        parts.append((begin, end))
        parts = [self.trimmed(part) for part in parts]
        severity, literal = self.source.text(*parts[0]), self.source.text(*parts[1])
        other = {"kLogInfo": "kLogError", "kLogError": "kLogInfo"}.get(severity)
        if other:
            self.source.wrap("severity", parts[0], f"{severity} -> {other} at {flat(literal)}",
                             f"({SWITCH} ? {other} : {INNER})")
        self.literal(parts[1], literal)
        for part in parts[2:]:
            argument = flat(self.source.text(*part))
            self.source.wrap("text", part, f"{argument} -> {argument} + 1 at {flat(literal)}", f"(({INNER}) + {SWITCH})")

    def trimmed(self, span: tuple[int, int]) -> tuple[int, int]:
        text = self.source.bytes[span[0] : span[1]]
        return span[0] + len(text) - len(text.lstrip()), span[1] - len(text) + len(text.rstrip())


def other_text(literal: str) -> str | None:
    """The literal with one letter changed, of the same length: no conversion and no escape is touched."""
    if not re.fullmatch(r'\s*(?:L|u8)?"[^\n]*"\s*(?:L?"[^\n]*"\s*)*', literal):
        return None
    body = re.search(r'"((?:\\.|[^"\\])*)"', literal)
    if body is None:
        return None
    kept = [match.span() for match in re.finditer(r"%[-+0-9.*lhI]*[a-zA-Z%]|\\.", body[1])]
    for at, character in enumerate(body[1]):
        if character.isalpha() and not any(first <= at < last for first, last in kept):
            new = "x" if character not in "xX" else "y"
            place = body.start(1) + at
            return literal[:place] + new + literal[place + 1 :]
    return None


def flags_of(commands: list[dict], path: str, root: Path) -> list[str]:
    """The flags of a source; one that is compiled with others has those of its folder."""
    wanted = str(root / path)
    same = [one for one in commands if one["file"] == wanted]
    near = same or [one for one in commands if Path(path).parts[0] in one["file"] and
                    Path(path).parent.name in one["output"]] or [one for one in commands if "QeLaObjects" in one["output"]]
    words = shlex.split(near[0]["command"])
    kept = []
    for at, word in enumerate(words):
        if word == "-isystem":
            kept += [word, words[at + 1]]
        elif word.startswith(("-D", "-I", "-std=")) and "FORTIFY" not in word:
            kept.append(word)
    builtin = next(Path("/usr/lib").glob("llvm-*/lib/clang/*/include")).parent
    return ["--target=x86_64-w64-mingw32ucrt", f"-resource-dir={builtin}", "-w", "-ferror-limit=0", *kept]


def libclang() -> cindex.Index:
    library = cindex.conf.lib
    library.clang_getFileLocation.argtypes = [cindex.SourceLocation] + [ctypes.c_void_p] * 4
    library.clang_getFileLocation.restype = None
    library.clang_getFileName.argtypes = [ctypes.c_void_p]
    return cindex.Index.create()


def sources(root: Path) -> list[str]:
    found = [path for folder in FOLDERS for path in (root / folder).rglob("*") if path.suffix in (".cpp", ".h")]
    return sorted(str(path.relative_to(root)) for path in found)


def parse(root: Path, commands: list[dict], path: str, text: bytes | None = None) -> cindex.TranslationUnit:
    """One unit; `text` instead of its file's."""
    unsaved = [(str(root / path), text.decode())] if text is not None else None
    return libclang().parse(str(root / path), flags_of(commands, path, root), unsaved_files=unsaved,
                            options=cindex.TranslationUnit.PARSE_PRECOMPILED_PREAMBLE)


def errors_of(unit: cindex.TranslationUnit) -> list[cindex.Diagnostic]:
    return [one for one in unit.diagnostics if one.severity >= cindex.Diagnostic.Error]


def choose(root: Path, unit: cindex.TranslationUnit, paths: list[str]) -> list[Fault]:
    """All faults of these sources, which the unit compiles, by source and place. Their numbers are those in this list, from 1."""
    if errors_of(unit):
        raise SystemExit(f"{unit.spelling} cannot be read: {errors_of(unit)[0]}")
    found = {path: Source(path, (root / path).read_text()) for path in paths}
    walkers = {str(root / path): Walker(source, str(root / path)) for path, source in found.items()}
    for node in unit.cursor.get_children():
        if walker := walkers.get(file_offset(node.extent.start)[0] or ""):
            walker.walk(node)
    faults: list[Fault] = []
    for source in found.values():
        for key in [key for key in source.found if key[2] == "condition" and not key[3].endswith("not so")]:
            # "not so" says the same as the other comparison.
            if any(other[:3] == key[:3] and other[3].endswith("not so") for other in source.found):
                del source.found[key]
        faults += sorted(source.found.values(),
                         key=lambda one: (one.wraps[-1].start, -one.wraps[-1].end, one.kind, one.change))
    seen: dict[str, int] = {}
    for number, fault in enumerate(faults, 1):
        fault.number = number
        seen[fault.name] = seen.get(fault.name, 0) + 1
        if seen[fault.name] > 1:
            fault.change += f" (#{seen[fault.name]})"
    return faults


def render(text: str, faults: list[Fault]) -> tuple[bytes, list[tuple[int, int, int]]]:
    """The text of one source with the switches of these faults; and where each stands in it: number, start, end."""
    data = text.encode()
    wraps = sorted(((wrap, fault.number) for fault in faults for wrap in fault.wraps),
                   key=lambda one: (one[0].start, one[0].start != one[0].end, -one[0].end,
                                    "static_cast<void>" not in one[0].template))  # a statement around its expression
    at = 0

    def inner(begin: int, end: int) -> str:  # \x01 number \x02 text \x03 is a wrap
        nonlocal at
        out, place = [], begin
        while at < len(wraps) and wraps[at][0].start < end:
            wrap, number = wraps[at]
            at += 1
            if wrap.end > end:  # cuts through another one
                continue
            out.append(data[place : wrap.start].decode())
            body = inner(wrap.start, wrap.end) if wrap.end > wrap.start else ""
            out.append(f"\x01{number}\x02{wrap.template.replace(SWITCH, f"QeLaMutant({number})").replace(INNER, body)}\x03")
            place = wrap.end
        out.append(data[place:end].decode())
        return "".join(out)

    plain, spans, opened = bytearray(), [], []
    for piece in re.split(rb"(\x01\d+\x02|\x03)", inner(0, len(data)).encode()):
        if piece.startswith(b"\x01"):
            opened.append((int(piece[1:-1]), len(plain)))
        elif piece == b"\x03":
            number, start = opened.pop()
            spans.append((number, start, len(plain)))
        else:
            plain += piece
    return bytes(plain), spans


def save(faults: list[Fault], path: Path) -> None:
    path.write_text(json.dumps([asdict(fault) for fault in faults], indent=0))


def load(path: Path) -> list[Fault]:
    return [Fault(**{**one, "wraps": [Wrap(**wrap) for wrap in one["wraps"]]}) for one in json.loads(path.read_text())]
