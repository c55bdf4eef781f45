"""The texts that the tests expect."""

import re
from itertools import product

from messages.cppsource import closing, enclosing_functions, tokenize
from messages.written import pattern

TESTS = "tests"
MOST_TEXTS = 64  # that one expression may have, of constants with several values


class Tests:
    """Names and text expressions of the test files.

    A text expression is what "a" + b + "c" makes, constants and functions that only return a text put in; a part that
    is not known here is "\0" in it.
    """

    def __init__(self, top):
        self.files = {}
        for path in sorted((top / TESTS).rglob("*")):
            if path.suffix in (".cpp", ".h"):
                includes = re.findall(r'#include "([^"]+)"', path.read_text(encoding="utf-8"))
                tokens = tokenize(path)
                self.files[path.relative_to(top).as_posix()] = (tokens, enclosing_functions(tokens), includes)
        self.expected = {}

    def has(self, name, test):
        tokens = self.files[name][0]
        wanted = test.split(".")
        return len(wanted) == 2 and any(
            t.text in ("TEST", "TEST_F", "TEST_P", "TYPED_TEST")
            and [u.text for u in tokens[i + 1 : i + 6]] == ["(", wanted[0], ",", wanted[1], ")"]
            for i, t in enumerate(tokens)
        )

    def expressions(self, name):
        """The text expressions of a file and of the headers of the tests that it includes."""
        if name not in self.expected:
            names = [name]
            for other in names:
                names += [i for i in self.files[other][2] if i in self.files and i not in names]
            constants = {}
            for _ in range(3):  # constants and functions made of others
                found = [e for other in names for e in self.parse(other, constants)]
                for constant, text in found:
                    if constant is not None:
                        constants.setdefault(constant, set()).add(text)
            self.expected[name] = {text[2:] if text.startswith("**") else text for _, text in found}
        return self.expected[name]

    def parse(self, name, constants):
        """(what has this value or None, text) of every expression with a known part: the name of a constant, or
        "name()" of the function that returns it."""
        tokens, around, _ = self.files[name]
        for i, token in enumerate(tokens):
            if token.kind == "chr" or (i > 0 and tokens[i - 1].text == "+"):
                continue
            texts, is_known, j = [""], False, i
            while True:
                operands, j, known = self.operand(tokens, j, constants)
                if operands is None:
                    break
                is_known |= known
                texts = [a + b for a in texts for b in operands]
                if j + 1 >= len(tokens) or tokens[j].text != "+" or len(texts) > MOST_TEXTS:
                    break
                j += 1
            if not is_known:
                continue
            owner = None
            before = [t.text for t in tokens[max(0, i - 4) : i]]
            if before[-1:] == ["="]:
                owner = before[-4] if before[-3:-1] == ["[", "]"] else before[-2]
            elif before[-1:] == ["return"] and around[i] is not None:
                owner = around[i][0] + "()"
            for text in texts[:MOST_TEXTS]:
                yield owner, text

    @staticmethod
    def operand(tokens, i, constants):
        """(texts, index behind it, whether any of it is known) of the operand of "+" at i; texts None for no
        operand."""
        token = tokens[i]
        if token.kind == "str":
            return [token.text], i + 1, True
        if token.kind not in ("id", "num"):
            return None, i, False
        j = i + 1
        while j + 1 < len(tokens) and tokens[j].kind == "op" and tokens[j].text in ("::", ".", "->", "(", "[", "<"):
            if tokens[j].text == "<":
                # Template arguments, when a call follows them.
                end = next((k for k in range(j, min(j + 20, len(tokens))) if tokens[k].text in (">", ";")), j)
                if [t.text for t in tokens[end : end + 2]] != [">", "("]:
                    break
                j = end + 1
            else:
                j = closing(tokens, j) + 1 if tokens[j].text in "([" else j + 2
        if token.text == "std" and tokens[i + 2].text == "string" and tokens[i + 4].kind == "str":
            return [tokens[i + 4].text], j, True
        last = i + 2 if tokens[i + 1].text == "::" else i  # behind a namespace
        is_call = last + 1 < j and tokens[last + 1].text == "(" and closing(tokens, last + 1) + 1 == j
        key = tokens[last].text + "()" if is_call else tokens[last].text
        if key in constants and (is_call or last + 1 == j):
            return sorted(constants[key])[:MOST_TEXTS], j, True
        return ["\0"], j, False

    def expect(self, name, message):
        """Whether the file expects the whole message: in one expression, or in one that a helper of the tests makes
        ("**" + function + " ASSERTION FAILED " + …) with texts of the file in its unknown parts."""
        expressions = self.expressions(name)
        whole = pattern(message.pieces, ".*")
        if any(whole.fullmatch(e) for e in expressions):
            return True
        known = sorted(e for e in expressions if len(e) > 1 and e.strip() and "\0" not in e)
        parts = self.parts(message.pieces, known)
        first, last = message.pieces[0] or "", message.pieces[-1] or ""
        for e in expressions:
            between = e.split("\0")
            if len(between) == 2 and len(e.strip()) > 3 and fits_ends(between, first, last):
                choices = [[k] for k in known]
            elif 1 < len(between) <= 5 and any(max(between, key=len) in p for p in message.pieces if p is not None):
                choices = product(parts + ["\0"], repeat=len(between) - 1)
            else:
                continue
            for choice in choices:
                if whole.fullmatch(between[0] + "".join(c + b for c, b in zip(choice, between[1:]))):
                    return True
        return False

    @staticmethod
    def parts(pieces, known):
        """The known texts that can stand for a part of the message."""
        parts = {k for k in known if any(k in p for p in pieces if p is not None)}
        for i, piece in enumerate(pieces):
            for j in range(i + 2, len(pieces)):
                # A name with an inserted part, as that of a member of a class template.
                if piece is not None and pieces[j] is not None and None in pieces[i:j]:
                    name = pattern(pieces[i : j + 1], r"[\w:]+")
                    parts |= {k for k in known if name.fullmatch(k)}
        return sorted(parts)


def fits_ends(between, first, last):
    """Whether an expression of two known ends can be a message that begins and ends with these pieces."""
    begins = first.startswith(between[0]) or (first and between[0].startswith(first))
    ends = last.endswith(between[1]) or (last and between[1].endswith(last))
    return begins and ends
