"""Reads C++ sources as far as the checks need it: tokens, call arguments, the function around a token."""

import re
from collections import namedtuple

# kind: "str" (unescaped), "id", "num", "chr", "op", or "name" for the name that LTemplateFunctionName makes: its text
# is a tuple, None standing for the template argument.
Token = namedtuple("Token", "kind text line")

TOKEN = re.compile(
    r"""(?P<skip>\s+|//[^\n]*|/\*.*?\*/|\#[^\n]*)
    |(?:u8|[uUL])?"(?P<str>(?:[^"\\\n]|\\.)*)"
    |'(?P<chr>(?:[^'\\\n]|\\.)+)'
    |(?P<id>[A-Za-z_]\w*)
    |(?P<num>\d[\w.']*)
    |(?P<op>::|->|<<|>>|.)""",
    re.S | re.X,
)
ESCAPE = re.compile(r"\\(u[0-9a-fA-F]{4}|x[0-9a-fA-F]+|[0-7]{1,3}|.)", re.S)
SIMPLE = {"n": "\n", "r": "\r", "t": "\t", "0": "\0"}


def unescape(text):
    def one(match):
        code = match.group(1)
        if code[0] in "ux" and len(code) > 1:
            return chr(int(code[1:], 16))
        return SIMPLE.get(code) or (chr(int(code, 8)) if code.isdigit() else code)

    return ESCAPE.sub(one, text)


def tokenize(path):
    """The tokens of a source, TEXT("…") as a string and adjacent strings as one."""
    text = path.read_text(encoding="utf-8")
    tokens = []
    line = 1
    for match in TOKEN.finditer(text):
        kind = match.lastgroup
        if kind != "skip":
            value = match.group(kind)
            tokens.append(Token(kind, unescape(value) if kind == "str" else value, line))
        line += match.group().count("\n")
    joined = []
    i = 0
    while i < len(tokens):
        token = tokens[i]
        if token.text == "TEXT" and token.kind == "id" and i + 3 < len(tokens) and tokens[i + 2].kind == "str":
            end = closing(tokens, i + 1)
            token = Token("str", "".join(t.text for t in tokens[i + 2 : end]), token.line)
            i = end
        if token.kind == "str" and joined and joined[-1].kind == "str":
            joined[-1] = Token("str", joined[-1].text + token.text, joined[-1].line)
        else:
            joined.append(token)
        i += 1
    return joined


def closing(tokens, i):
    """Index of the bracket that closes the one at i."""
    depth = 0
    while i < len(tokens):
        if tokens[i].kind == "op":
            depth += tokens[i].text in "([{"
            depth -= tokens[i].text in ")]}"
            if depth == 0:
                return i
        i += 1
    return len(tokens) - 1


def arguments(tokens, i):
    """The argument lists of the call whose bracket stands at i."""
    end = closing(tokens, i)
    result = [[]]
    i += 1
    while i < end:
        token = tokens[i]
        if token.kind == "op" and token.text in "([{":
            close = closing(tokens, i)
            result[-1] += tokens[i : close + 1]
            i = close + 1
            continue
        if token.text == "LTemplateFunctionName":
            # <"before", T, "after">::value is one name.
            name = [t.text for t in tokens[i + 2 : i + 7]]
            result[-1].append(Token("name", (name[0] + "class ", None, name[4]), token.line))
            i += 10
            continue
        if token.text == "," and token.kind == "op":
            result.append([])
        else:
            result[-1].append(token)
        i += 1
    return result


def before_parameters(tokens, j):
    """Index of the name in front of the parameter list that ends at j."""
    depth = 0
    while j > 0:
        depth += (tokens[j].text == ")") - (tokens[j].text == "(")
        if depth == 0:
            break
        j -= 1
    return j - 1


def enclosing_functions(tokens):
    """For every token index the (name, parameter names) of the function body around it, or None. The initialisers of a
    constructor belong to it."""
    around = [None] * len(tokens)
    stack = []
    constructor = None  # whose initialisers are being read
    for i, token in enumerate(tokens):
        is_op = token.kind == "op"
        if is_op and token.text == ":" and i > 0 and tokens[i - 1].text == ")" and not any(stack):
            name = before_parameters(tokens, i - 1)
            if tokens[name].kind == "id":
                constructor = (tokens[name].text, [a[-1].text for a in arguments(tokens, name + 1) if a])
        if is_op and token.text == "{":
            j = i - 1
            while j > 0 and tokens[j].text in ("const", "override", "noexcept", "final"):
                j -= 1
            found = stack[-1] if stack else None
            if constructor is not None:
                # An initialiser's bracket stands behind a name, the body's behind the last initialiser.
                found = constructor
                constructor = None if tokens[j].text in (")", "}") else constructor
            elif tokens[j].text == ")" and tokens[j].kind == "op":
                name = before_parameters(tokens, j)
                if tokens[name].kind == "id" and tokens[name].text not in ("if", "for", "while", "switch"):
                    found = (tokens[name].text, [a[-1].text for a in arguments(tokens, name + 1) if a])
            stack.append(found)
        elif is_op and token.text == "}" and stack:
            stack.pop()
        around[i] = constructor or (stack[-1] if stack else None)
    return around
