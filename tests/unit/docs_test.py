"""The documents against the code: log messages, commands, and links between documents."""

import re
import unittest
from collections import Counter
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
GUIDE = (PROJECT / "docs/operating.md").read_text()
ROOMS = ("service", "management", "gather", "config", "util", "sqlite", "companions/detect", "companions/alert",
         "companions/common")
LITERAL = r'"(?:[^"\\]|\\.)*"'
LEVELS = {"kLogDetail": 2, "kLogEvent": 4, "kLogWarning": 8, "kLogError": 16}
LOUD = (8, 16)

# Files with calls that carry no text of their own, how many, and what the guide says instead.
INDIRECT = {
    "service/state_flags.cpp": (1, ("Assinging default value.", "Assining default value.")),
    "gather/rollback.cpp": (1, ("ROLLBACK TRANSACTION execution failed.",)),
    "companions/detect/daemon.cpp": (1, ("Invalid value received for configuration key %s:[%s], using %d",)),
    "companions/alert/commands.cpp": (1, ("Invalid value received for configuration key %s:[%s], using [%s]",)),
    "companions/alert/daemon.cpp": (1, ("Invalid value received for configuration key %s:[%s], using [%s]",)),
    "companions/alert/delivery/sender.cpp": (1, ("Cannot write the dead letters: %s",
                                        "Cannot record the outcome for channel %s, trying again: %s")),
    "companions/common/error_text.cpp": (1, ("cvanomalydetect: %s", "cvanomalyalert: %s")),
}

# The call behind `say`, whose own calls are looked at by themselves.
HANDED_ON = [("companions/detect/detector.cpp", "level")]


# --- Reading the source ---


def without_comments(code):
    return re.sub(rf"({LITERAL})|//[^\n]*|/\*.*?\*/", lambda found: found[1] or " ", code, flags=re.S)


def arguments(code, start):
    """The arguments of a call, of which `start` is the place behind the opening parenthesis."""
    found, depth, begin = [], 0, start
    for token in re.compile(rf"{LITERAL}|[(){{}}\[\],]").finditer(code, start):
        sign = token[0]
        if sign in ("(", "{", "["):
            depth += 1
        elif depth == 0 and sign in (")", ","):
            found.append(code[begin:token.start()].strip())
            begin = token.end()
            if sign == ")":
                return found
        elif sign in (")", "}", "]"):
            depth -= 1
    raise ValueError(f"a call without an end: {code[start:start + 60]}")


def levels_of(argument):
    """The levels that a first argument may stand for; empty when it is not known."""
    return {int(LEVELS.get(name, name)) for name in re.findall(r"\b(?:kLog\w+|\d+)\b", argument)
            if name in LEVELS or name.isdigit()}


def calls(code, name):
    """The arguments of each call of a function. Declarations, whose first argument is a type, are left out."""
    for call in re.finditer(rf"(?<![\w.:]){name}\(", code):
        found = arguments(code, call.end())
        if not re.match(r"(const|int|std::)\b", found[0]):
            yield found


def sources():
    for room in ROOMS:
        for source in sorted((PROJECT / room).rglob("*.cpp")):
            yield str(source.relative_to(PROJECT)), without_comments(source.read_text())


def literals(argument):
    """The texts that an argument may be: adjacent literals are one, those of `c ? "a" : "b"` are two."""
    return ["".join(part[1:-1] for part in re.findall(LITERAL, run))
            for run in re.findall(rf"{LITERAL}(?:\s*{LITERAL})*", argument)]


def messages():
    """(file, text) of each call of logmsg or logmsgf at level 8 or 16, its tag left out; of constants the literal
    that stands behind their name; no text where there is neither."""
    for source, code in sources():
        constants = dict(re.findall(rf"constexpr char (\w+)\[\] =\s*({LITERAL})", code))
        for call in calls(code, "logmsgf?"):
            if not levels_of(call[0]).intersection(LOUD):
                continue
            for text in literals(call[2]) or [constants.get(call[2], "")[1:-1]]:
                yield source, text


class Guide(unittest.TestCase):
    def test_the_level_of_every_message_is_known(self):
        found = [(source, call[0]) for source, code in sources() for call in calls(code, "logmsgf?")]
        self.assertGreater(len(found), 100)
        self.assertEqual([call for call in found if not levels_of(call[1])], HANDED_ON)

    def test_every_message_of_level_8_and_16_is_explained(self):
        found = [message for message in messages() if message[1]]
        self.assertGreater(len(found), 50)
        for source, text in found:
            plain = text.replace("\\n", "").strip()
            with self.subTest(source=source, text=text):
                self.assertTrue(plain in GUIDE, "not in docs/operating.md")

    def test_messages_that_wait_for_a_commit_are_explained(self):
        code = without_comments((PROJECT / "companions/detect/detector.cpp").read_text())
        found = [call for call in calls(code, "say") if levels_of(call[0]).intersection(LOUD)]
        self.assertEqual(len(found), 1)
        for call in found:
            parts = literals(call[1])
            self.assertTrue(parts)
            self.assertRegex(GUIDE, "[^|]+".join(map(re.escape, parts)))

    def test_messages_that_come_from_elsewhere_are_explained(self):
        found = Counter(source for source, text in messages() if not text)
        self.assertEqual(found, {source: number for source, (number, _) in INDIRECT.items()})
        for source, (_, texts) in INDIRECT.items():
            for text in texts:
                with self.subTest(source=source, text=text):
                    self.assertIn(text, GUIDE)


# --- Links between documents ---

DOCUMENTS = sorted(path for path in PROJECT.rglob("*.md") if path.relative_to(PROJECT).parts[0] not in ("build", ".git"))


def anchors(text):
    """What a heading is called in a link: as the forges do it."""
    headings = re.findall(r"^#+ (.+)$", re.sub(r"^```.*?^```", "", text, flags=re.M | re.S), re.M)
    return {re.sub(r"[^\w\- ]", "", heading).lower().replace(" ", "-") for heading in headings}


def links(document):
    """(target, anchor) of each link to another place of the project; a link within the document has no target."""
    text = re.sub(r"^ *```.*?^ *```", "", document.read_text(), flags=re.M | re.S)
    for target in re.findall(r"\]\(([^)\s]+)\)", re.sub(r"`[^`\n]*`", "", text)):
        if not re.match(r"[a-z]+:", target):
            yield target.partition("#")[::2]


class Links(unittest.TestCase):
    def test_lead_to_a_file_and_a_heading(self):
        found = 0
        for document in DOCUMENTS:
            for target, anchor in links(document):
                found += 1
                place = (document.parent / target).resolve() if target else document
                with self.subTest(document=str(document.relative_to(PROJECT)), target=target, anchor=anchor):
                    self.assertTrue(place.exists())
                    self.assertTrue(not anchor or anchor in anchors(place.read_text()))
        self.assertGreater(found, 50)

    def test_of_the_package_lead_to_what_is_in_the_package(self):
        installed = set()
        for names, folder in re.findall(r"foreach\(\w+ ([^)]*)\)\s*install_package_file\(\$\{PROJECT_SOURCE_DIR\}/docs/(\S*)"
                                        r"\$\{\w+\} ", (PROJECT / "packaging/CMakeLists.txt").read_text()):
            installed |= {(PROJECT / "docs" / folder / name).resolve() for name in names.split()}
        self.assertGreater(len(installed), 10)
        for document in installed:
            if document.suffix != ".md":
                continue
            for target, _ in links(document):
                with self.subTest(document=document.name, target=target):
                    self.assertTrue(not target or (document.parent / target).resolve() in installed)

    def test_every_symptom_is_linked_from_the_first_pages(self):
        symptoms = {path.resolve() for path in (PROJECT / "docs/symptoms").glob("*.md")}
        self.assertEqual(len(symptoms), 9)
        for page in ("README.md", "docs/operating.md", "docs/faq.md"):
            linked = {(PROJECT / page).parent.joinpath(target).resolve() for target, _ in links(PROJECT / page)}
            self.assertEqual(symptoms - linked, set(), page)


# --- Commands that documents quote ---


def operator_tool():
    """{command: options} of cvanomalyctl; "" for those that every command takes."""
    parts = without_comments((PROJECT / "operator_tool/options.cpp").read_text()).split("add_subcommand(")
    options = [set(re.findall(r"--[a-z][a-z-]*", " ".join(literals(part)))) for part in parts]
    names = [""] + [re.match(r'\s*"(\w+)"', part)[1] for part in parts[1:]]
    return dict(zip(names, options))


def alert_modes():
    code = (PROJECT / "companions/alert/options.cpp").read_text()
    return set(re.findall(r'name == "(-\w+)"', code))


def quoted(program):
    """(document, words) of each call of a program in a code span or a line of a block."""
    for document in DOCUMENTS:
        for call in re.findall(rf"(?:^ *(?:\$ )?|`|/){program} ([^`\n|>&;#]+)", document.read_text(), re.M):
            yield str(document.relative_to(PROJECT)), call.split()


class Commands(unittest.TestCase):
    def test_of_the_operators_tool_exist(self):
        tool = operator_tool()
        self.assertEqual(len(tool), 12)
        found = set()
        for document, words in quoted("cvanomalyctl"):
            # In a synopsis brackets stand around what may be left out.
            words = [word.strip("[]") for word in words]
            commands = [word for word in words if word in tool]
            options = {word for word in words if word.startswith("--")}
            with self.subTest(document=document, words=words):
                self.assertTrue(commands or options and options.issuperset(words), "no command")
                known = tool[""].union(*(tool[command] for command in commands)) | {"--help"}
                self.assertEqual(options - known, set())
            if document.startswith("docs/symptoms/"):
                found |= set(commands)
        self.assertLessEqual({"status", "streams", "anomalies", "show", "explain", "backtest", "check"}, found)

    def test_print_the_lines_that_the_symptoms_refer_to(self):
        code = "".join(path.read_text() for path in sorted((PROJECT / "operator_tool/layout").glob("*.cpp"))
                       + sorted((PROJECT / "operator_tool/terminal").glob("*.cpp")))
        found = {(page.name, label) for page in (PROJECT / "docs/symptoms").glob("*.md")
                 for label in re.findall(r"\*\*([A-Z]\w+(?: \w+)?)\*\*", page.read_text())}
        self.assertGreater(len(found), 10)
        for page, label in found:
            with self.subTest(page=page, label=label):
                self.assertIn(f'"{label}"', code)

    def test_of_the_alerts_exist(self):
        modes = alert_modes()
        self.assertGreater(len(modes), 5)
        found = set()
        for document, words in quoted("cvanomalyalert"):
            options = {word.strip("[]") for word in words if re.match(r"\[?-", word)}
            with self.subTest(document=document, words=words):
                self.assertTrue(options)
                self.assertEqual(options - modes, set())
            if document.startswith("docs/symptoms/"):
                found |= options
        self.assertEqual(found, {"-status", "-test", "-resend"})


if __name__ == "__main__":
    unittest.main()
