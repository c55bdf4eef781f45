"""The messages that the sources write, found from the calls of the reporting functions.

A helper that passes a text on is followed to its callers. Texts that a call inserts, by a format or as a value, are
placeholders.
"""

import re
from collections import namedtuple

from messages.cppsource import arguments, enclosing_functions, tokenize

SOURCES = ("gen", "win32", "diag", "dll")

# How the reporting functions make a line of their arguments: "{0}" is the text of argument 0, "<0>" an inserted
# value, "{0%}" a format; the second item is the kind of line, or the argument that tells it.
REPORTS = {
    "LDebugTrace": {1: ("{0}", "ordinary"), 2: ("{0}<1>", "ordinary")},
    "LDebugTraceError": {1: ("{0}", "error"), 2: ("{0}<1>", "error")},
    "LDebugTraceValue": {3: ("{0}<1>", 2)},
    "LDebugTraceFunction": {3: ("{0} {2}", 1)},
    "LDebugTraceFunctionF": {None: ("{0} {2%}", 1)},
    "LDebugTraceF": {None: ("{0%}", "ordinary")},
    "LDebugTraceErrorF": {None: ("{0%}", "error")},
    "LDebugTraceSystemError": {2: ("{0}<1>", "ordinary")},
    "LDebugWriteLine": {2: ("{0}", 1)},
    "LDebugWriteLineW": {2: ("{0}", 1)},
    "LDebugAssertFailed": {4: ("{0} ASSERTION FAILED {1}:\r\n   {2}({3})", "error")},
    "LDebugCheckFailed": {4: ('ASSERTION FAILED ({0}) "{1}" file: {2} line: {3}', "error")},
}
# What the last two are made with, and what the catalogue's introduction says of every line: a change there must be
# noticed here.
FIXED = (
    "%s ASSERTION FAILED %s:\r\n   %s(%d)",
    '(%s) "%s"',
    "ASSERTION FAILED %s file: %s line: %d",
    "!!! NULL !!!",
    "tracedll_Sendora%s.txt",
)
VALUES = ("_Create", "LSharedSettings32Record")  # whose parameters are values, not texts
FORMATTERS = {"tsnprintf": 2}  # argument 0 is the buffer, this one the format

Message = namedtuple("Message", "pieces kind place")  # pieces: texts, None for an inserted value


def pattern(pieces, value):
    """A regular expression for the pieces, with the given one for inserted values."""
    return re.compile("".join(value if p is None else re.escape(p) for p in pieces), re.S)


CONVERSION = re.compile(r"%(?:%|[-+ #0]*\d*(?:\.\d+)?(?:I64|I32|I|hh|h|ll|l|z)?[a-zA-Z])")


def format_pieces(text):
    pieces = []
    at = 0
    for match in CONVERSION.finditer(text):
        pieces.append(text[at : match.start()])
        pieces.append("%" if match.group() == "%%" else None)
        at = match.end()
    return [p for p in pieces + [text[at:]] if p != ""]


class Sources:
    """The messages of the sources below a folder; fail(text) is called for what does not fit."""

    def __init__(self, top, fail):
        self.fail = fail
        self.files = {}
        for folder in SOURCES:
            for path in sorted((top / folder).rglob("*")):
                if path.suffix in (".cpp", ".h"):
                    tokens = tokenize(path)
                    self.files[path.relative_to(top).as_posix()] = (tokens, enclosing_functions(tokens))
        self.messages = []
        for name, (tokens, around) in self.files.items():
            for i, call in self.calls(name, REPORTS):
                # The reporting functions pass texts on to each other; a text of their own counts all the same.
                passes_on = around[i] is not None and around[i][0] in REPORTS
                if not passes_on or all(len(a) == 1 and a[0].kind == "str" for a in call[:1]):
                    self.add(name, i, call)
        literals = {t.text for tokens, _ in self.files.values() for t in tokens if t.kind == "str"}
        for text in FIXED:
            if text not in literals:
                self.fail(f"the text {text!r} is not in the sources any more; see FIXED in scripts/messages/written.py")

    def calls(self, name, functions):
        """(index, arguments) of the calls; declarations and definitions are left out."""
        tokens = self.files[name][0]
        for i in range(len(tokens) - 1):
            if tokens[i].kind == "id" and tokens[i].text in functions and tokens[i + 1].text == "(":
                call = arguments(tokens, i + 1)
                # Only a declaration has two names in a row ("bool bError"), "<const void*>" apart.
                if not any(
                    a.kind == b.kind == "id" and before.text != "<"
                    for argument in filter(None, call)
                    for before, a, b in zip([argument[0]] + argument, argument, argument[1:])
                ):
                    yield i, call

    def add(self, name, i, call):
        tokens = self.files[name][0]
        place = f"{name}:{tokens[i].line}"
        forms = REPORTS[tokens[i].text]
        form = forms.get(len(call), forms.get(None))
        if form is None:
            self.fail(f"{place}: {tokens[i].text} with {len(call)} arguments is unknown to the check")
            return
        lines = [[]]
        for part in re.findall(r"\{\d%?\}|<\d>|[^{<]+", form[0]):
            if part[0] not in "{<":
                found = [[part]]
            else:
                number = int(part[1])
                found = self.texts(name, i, call[number], part[0] == "<", part[2] == "%", place)
            lines = [line + more for line in lines for more in found]
        kind = form[1]
        if isinstance(kind, int):
            flag = [t.text for t in call[kind]]
            if flag not in (["true"], ["false"]):
                self.fail(f"{place}: the kind of line cannot be seen")
                return
            kind = "error" if flag == ["true"] else "ordinary"
        self.messages += [Message(tuple(line), kind, place) for line in lines]

    def texts(self, name, i, argument, is_value, is_format, place):
        """The texts that an argument can have, each a list of pieces."""
        tokens, around = self.files[name]
        only = argument[0] if len(argument) == 1 else None
        if only is None:
            if not is_value:
                self.fail(f"{place}: the text of the message cannot be seen")
            return [[None]]
        if only.kind == "name":
            return [[p for p in only.text if p != ""]]
        if only.kind == "str":
            return [format_pieces(only.text) if is_format else [only.text] if only.text else []]
        if only.text == "__FILE__":
            return [[name]]
        if only.text == "__LINE__":
            return [[None]]
        if only.kind == "num":
            return [[only.text]]
        if is_value:
            return [self.formatted(name, i, only.text)]
        if around[i] is not None and only.text in around[i][1] and around[i][0] not in VALUES:
            return self.passed(around[i][0], around[i][1].index(only.text), is_format, place)
        # LDebugTraceFunction also takes a text that is a value, such as a path; the catalogue then wants "<…>" alone.
        if tokens[i].text != "LDebugTraceFunction":
            self.fail(f"{place}: the text of the message cannot be seen ({only.text})")
        return [[None]]

    def passed(self, function, number, is_format, place):
        """The texts that the callers of a helper pass on."""
        result = []
        for name in self.files:
            for i, call in self.calls(name, {function}):
                if number < len(call) and [t.text for t in call[number]] != ["nullptr"]:
                    result += self.texts(name, i, call[number], False, is_format, place)
        if not result:
            self.fail(f"{place}: nobody passes a text to {function}")
        return result

    def formatted(self, name, i, buffer):
        """The pieces of a value: of its format when the same function formatted it, else one placeholder."""
        tokens, around = self.files[name]
        for j in range(i, 0, -1):
            if around[j] != around[i]:
                break
            if tokens[j].text in FORMATTERS and tokens[j + 2].text == buffer:
                call = arguments(tokens, j + 1)
                return format_pieces(call[FORMATTERS[tokens[j].text]][0].text)
        return [None]
