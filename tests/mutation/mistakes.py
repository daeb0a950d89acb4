"""Where in the product's code a small mistake can be made, and which ones a seed draws.

The code is formatted by clang-format, so that a binary operator stands between blanks and the bracket of a
template does not: that is all the parsing that this needs. What a drawn mistake does to the program, the compiler
and the tests say.
"""

import bisect
import dataclasses
import random
import re

# Each kind is drawn equally often, however many places it has.
KINDS = ("comparison", "logic", "arithmetic", "constant", "statement", "arguments", "sql")

_OPPOSITES = {
    "comparison": {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="},
    "logic": {"&&": "||", "||": "&&"},
    "arithmetic": {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "+=": "-=", "-=": "+="},
}
_SQL_OPPOSITES = {
    "ASC": "DESC", "DESC": "ASC", "AND": "OR", "OR": "AND", "MIN(": "MAX(", "MAX(": "MIN(", "IS NULL": "IS NOT NULL",
    "IS NOT NULL": "IS NULL", "=": "!=", "!=": "=", "<": "<=", "<=": "<", ">": ">=", ">=": ">", "DISTINCT": "",
    "LIMIT 1": "LIMIT 2", "COUNT(": "MAX(", "OR REPLACE": "OR IGNORE", "OR IGNORE": "OR REPLACE", "UNION ALL": "UNION",
}

_NOT_CODE = re.compile(
    r"""//[^\n]*|/\*.*?\*/|^[ ]*\#(?:[^\n\\]|\\.)*|R"(?P<raw>\w*)\((?P<rawtext>.*?)\)(?P=raw)"|
        "(?P<text>(?:[^"\\\n]|\\.)*)"|(?<!\w)'(?:[^'\\\n]|\\.)+'""",
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)
_BINARY = re.compile(r"(?<=\s)(<=|>=|==|!=|<|>|&&|\|\||\+=|-=|[-+*/%])(?=\s)")
_NOT = re.compile(r"(?<![\w!=])!(?=[\w(:*])")
_STEP = re.compile(r"(?<![-+])(\+\+|--)(?![-+])")
_NUMBER = re.compile(r"(?<![\w.'])(\d[\d']*(?:\.\d+)?(?:e-?\d+)?)(?=(?:ms|s|min|h|L|LL|U|UL|ULL|F)?(?![\w.'>]))")
_BOOLEAN = re.compile(r"\b(true|false)\b")
# A number that begins with {} begins with 0.
_ZERO = re.compile(r"\b(?:unsigned|int|long|double|std::size_t|std::u?int\d+_t|\w+fd_t|pid_t) \w+(\{\})(?=;)")
# An assignment, a call or a step; what declares something or leaves the function is none.
_STATEMENT = re.compile(
    r"(?:(?<=[;{}])\s*|(?<=\))\s+|\belse\s+)"
    r"((?!return\b|throw\b|break\b|if\b|for\b|while\b|switch\b|do\b|using\b|static_assert\b|case\b|delete\b|else\b|goto\b|co_)"
    r"(?:\+\+|--)?\*?[\w:]+(?:(?:\.|->)\w+|\[[^][;{}]*\]|\((?:[^();{}]|\([^();{}]*\))*\))*"
    r"(?: [-+*/|&]?= [^;{}]+|(?<=\))|\+\+|--)?;)"
)
_DECLARATION = re.compile(r"^[\w:]+;| = (?:default|delete|0);$")
_CALL = re.compile(r"[\w>]\(((?:[^(){};]|\([^(){};]*\))*)\)")
_SYMMETRIC = re.compile(r"\b(?:min|max)(?:<[^<>]*>)?\($")
_ARGUMENT = re.compile(r"""[^\s,]+""")
_SQL_TEXT = re.compile(r"\b(SELECT|INSERT|UPDATE|DELETE|WHERE|FROM|ORDER BY|PRAGMA|SET)\b|^ ?(AND|OR|JOIN|LIMIT) ")
_SQL_WORD = re.compile(
    r"\bOR (?:REPLACE|IGNORE)\b|\bUNION ALL\b|\bIS (?:NOT )?NULL\b|\b(?:ASC|DESC|AND|OR|DISTINCT)\b|"
    r"\b(?:MIN|MAX|COUNT)\(|\bLIMIT 1\b|(?<=[\s\w?)])(?:<=|>=|!=|<|>|=)(?=[\s\w?(:'])"
)
_ASSIGNED = re.compile(r"\b(?:SET|PRAGMA)\b(?!.*\bWHERE\b)", re.DOTALL)


@dataclasses.dataclass(frozen=True)
class Mistake:
    file: str
    start: int
    before: str
    after: str
    kind: str

    def made_in(self, text):
        """The text of the file with this mistake; the file must not have changed since it was drawn."""
        end = self.start + len(self.before)
        assert text[self.start:end] == self.before
        return text[:self.start] + self.after + text[end:]


class _Source:
    """A file's text, and the same with blanks for all that is no code."""

    def __init__(self, text):
        self.text = text
        self.literals = []  # start and end of what stands between quotes
        pieces, end = [], 0
        for found in _NOT_CODE.finditer(text):
            group = next((name for name in ("text", "rawtext") if found[name] is not None), None)
            if group:
                self.literals.append(found.span(group))
            # A literal stays something that an argument can be.
            filler = "\x01" if found[0][-1] in "\"'" else " "
            pieces += [text[end:found.start()], "".join(c if c == "\n" else filler for c in found[0])]
            end = found.end()
        self.code = "".join(pieces) + text[end:]


def _next_number(number):
    """The next one of a small number, twice a large one: one more of a time limit makes no difference."""
    if "." in number or "e" in number:
        return repr(float(number) * 1.2 or 1.0)
    if re.fullmatch("0[0-7]+", number):
        return f"0{int(number, 8) + 1:o}"
    value = int(number.replace("'", ""))
    return str(value + 1 if value <= 100 else 2 * value)


def _operators(code):
    for found in _BINARY.finditer(code):
        for kind, opposites in _OPPOSITES.items():
            if found[1] in opposites:
                yield kind, found.start(), found[1], opposites[found[1]]
    for found in _NOT.finditer(code):
        yield "logic", found.start(), "!", ""
    for found in _STEP.finditer(code):
        yield "arithmetic", found.start(), found[1], {"++": "--", "--": "++"}[found[1]]


def _constants(code):
    for found in _NUMBER.finditer(code):
        yield "constant", found.start(1), found[1], _next_number(found[1])
    for found in _BOOLEAN.finditer(code):
        yield "constant", found.start(), found[1], {"true": "false", "false": "true"}[found[1]]
    for found in _ZERO.finditer(code):
        yield "constant", found.start(1), found[1], "{1}"


def _statements(source):
    for found in _STATEMENT.finditer(source.code):
        if not _DECLARATION.search(found[1]):
            yield "statement", found.start(1), source.text[slice(*found.span(1))], ";"


def _arguments(source):
    """Two neighbours of a call change places. A declaration's have a blank each, between type and name."""
    for found in _CALL.finditer(source.code):
        if _SYMMETRIC.search(source.code[:found.start(1)][-40:]):
            continue
        places, depth, start = [], 0, found.start(1)
        for at in range(found.start(1), found.end(1) + 1):
            char = source.code[at]
            if char == "(":
                depth += 1
            elif at == found.end(1) or (char == "," and depth == 0):
                places.append((start, at))
                start = at + 1
            elif char == ")":
                depth -= 1
        for (first, comma), (second, end) in zip(places, places[1:]):
            left, right = source.text[first:comma], source.text[second:end]
            if _ARGUMENT.fullmatch(source.code[first:comma].strip()) and \
                    _ARGUMENT.fullmatch(source.code[second:end].strip()) and left.strip() != right.strip():
                swapped = left.replace(left.strip(), right.strip()) + "," + right.replace(right.strip(), left.strip())
                yield "arguments", first, source.text[first:end], swapped


def _sql(source):
    for start, end in source.literals:
        literal = source.text[start:end]
        if _SQL_TEXT.search(literal):
            for found in _SQL_WORD.finditer(literal):
                if found[0] == "=" and _ASSIGNED.search(literal[:found.start()]):
                    continue
                yield "sql", start + found.start(), found[0], _SQL_OPPOSITES[found[0]]


def mistakes_in(file, text):
    """All of the file, in no particular order."""
    source = _Source(text)
    for places in (_operators(source.code), _constants(source.code), _statements(source), _arguments(source),
                   _sql(source)):
        for kind, start, before, after in places:
            yield Mistake(file, start, before, after, kind)


def drawn(texts, seed):
    """All mistakes of the files (name to text) in the order in which this seed draws them."""
    places = {kind: [] for kind in KINDS}
    for file in sorted(texts):
        for mistake in mistakes_in(file, texts[file]):
            places[mistake.kind].append(mistake)
    dice = random.Random(seed)
    for found in places.values():
        dice.shuffle(found)
    while any(places.values()):
        yield places[dice.choice([kind for kind in KINDS if places[kind]])].pop()


def line_of(text, position):
    """The number of the line, from 1, and the line itself without its indentation."""
    ends = [found.start() for found in re.finditer("\n", text)]
    number = bisect.bisect_left(ends, position)
    return number + 1, text.split("\n")[number].strip()
