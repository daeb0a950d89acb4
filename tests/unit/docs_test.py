"""The operator's guide against the code: every message of level 8 and 16."""

import re
import unittest
from collections import Counter
from pathlib import Path

PROJECT = Path(__file__).resolve().parents[2]
GUIDE = (PROJECT / "docs/operating.md").read_text()
ROOMS = ("service", "management", "gather", "config", "util", "sqlite", "companions/detect", "companions/alert",
         "companions/common")
LITERAL = r'"(?:[^"\\]|\\.)*"'
WARNING_OR_ERROR = r"(?:kLogWarning|8|kLogError|16)"

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


def messages():
    """(file, text) of each literal that a call of logmsg or logmsgf at level 8 or 16 carries, its tag left
    out; of constants the literal that stands behind their name; no text where there is neither."""
    for room in ROOMS:
        for source in sorted((PROJECT / room).rglob("*.cpp")):
            code = source.read_text()
            constants = dict(re.findall(rf"constexpr char (\w+)\[\] =\s*({LITERAL})", code))
            for call in re.findall(rf"logmsgf?\(\s*{WARNING_OR_ERROR},\s*((?:[^;\"]|{LITERAL})*)\);", code):
                tag, _, rest = call.partition(",")
                text = "".join(part[1:-1] for part in re.findall(LITERAL, rest))
                if not text:
                    text = constants.get(rest.strip(), "")[1:-1]
                yield str(source.relative_to(PROJECT)), text


class Guide(unittest.TestCase):
    def test_every_message_of_level_8_and_16_is_explained(self):
        found = [message for message in messages() if message[1]]
        self.assertGreater(len(found), 50)
        for source, text in found:
            plain = text.replace("\\n", "").strip()
            with self.subTest(source=source, text=text):
                self.assertTrue(plain in GUIDE, "not in docs/operating.md")

    def test_messages_that_wait_for_a_commit_are_explained(self):
        code = (PROJECT / "companions/detect/detector.cpp").read_text()
        found = re.findall(rf"say\(\s*{WARNING_OR_ERROR},\s*((?:[^;\"]|{LITERAL})*)\);", code)
        self.assertEqual(len(found), 1)
        for call in found:
            self.assertRegex(GUIDE, "[^|]+".join(re.escape(part[1:-1]) for part in re.findall(LITERAL, call)))

    def test_messages_that_come_from_elsewhere_are_explained(self):
        found = Counter(source for source, text in messages() if not text)
        self.assertEqual(found, {source: number for source, (number, _) in INDIRECT.items()})
        for source, (_, texts) in INDIRECT.items():
            for text in texts:
                with self.subTest(source=source, text=text):
                    self.assertIn(text, GUIDE)


if __name__ == "__main__":
    unittest.main()
