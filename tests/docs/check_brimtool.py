#!/usr/bin/env python3
"""Checks the man page and the completion of brimtool against the tool's own help.

usage: check_brimtool.py BRIMTOOL
"""
import functools
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
MAN = TREE / "docs/man/brimtool.1"
COMPLETION = TREE / "share/bash-completion/completions/brimtool"
BASH_COMPLETION = pathlib.Path("/usr/share/bash-completion/bash_completion")
BRIMTOOL = ""


@functools.lru_cache(maxsize=None)
def help_of(*command):
    return subprocess.run([BRIMTOOL, *command, "--help"], stdout=subprocess.PIPE, check=True, text=True).stdout


def subcommands(text):
    """The names in the list of subcommands of a help text."""
    listed = re.search(r"^Subcommands:\n((?:  .*\n)+)", text, re.M)
    return re.findall(r"^  (\w+)", listed.group(1), re.M) if listed else []


def options(text):
    """The options of a help text, short and long."""
    lines = re.findall(r"^ {2,4}(-\S+)", text, re.M)
    return {option for line in lines for option in line.split(",")}


def commands():
    """All commands of the tool, as lists of words."""
    result = []
    for name in subcommands(help_of()):
        inner = subcommands(help_of(name))
        result += [[name]] + [[name, each] for each in inner]
    return result


def completions(*words):
    """What the completion offers for the last word."""
    script = f"""
source {BASH_COMPLETION} && source {COMPLETION}
COMP_WORDS=({" ".join(map(repr, words))}); COMP_CWORD={len(words) - 1}
COMP_LINE="${{COMP_WORDS[*]}}"; COMP_POINT=${{#COMP_LINE}}
_brimtool; printf '%s\\n' "${{COMPREPLY[@]}}"
"""
    run = subprocess.run(["bash", "--norc", "-c", script], cwd=TREE / "docs", stdout=subprocess.PIPE, text=True,
                         timeout=60, check=False)
    return set(run.stdout.split())


class Help(unittest.TestCase):
    def test_has_commands_and_options(self):
        self.assertGreaterEqual(len(commands()), 12)
        self.assertIn("--from", options(help_of("transcode")))
        self.assertIn("-f", options(help_of("transcode")))


class ManPage(unittest.TestCase):
    def test_tells_of_every_command(self):
        headings = set(re.findall(r"^\.Ss (.*)$", MAN.read_text(), re.M)) - {"Options of all"}
        expected = {" ".join(command) for command in commands()} - {"locale"}
        self.assertEqual(headings, expected)

    def test_tells_of_every_option(self):
        text = MAN.read_text()
        told = set()
        for line in re.findall(r"^\.(?:It )?(?:Fl|Op Fl|Brq Fl) (.*)$", text, re.M):
            told.update("-" + word for word in re.findall(r"(?:^| )(-?[\w-]+)", line) if word.startswith("-"))
            told.update("-" + word for word in re.findall(r"(?:^|Fl )(\w)(?= |$)", line))
        for command in [[]] + commands():
            with self.subTest(command=command):
                self.assertEqual(options(help_of(*command)) - told, set())

    @unittest.skipUnless(shutil.which("mandoc"), "mandoc is not installed")
    def test_is_sound(self):
        run = subprocess.run(["mandoc", "-Tlint", "-Wwarning", MAN], stdout=subprocess.PIPE, text=True, check=False)
        self.assertEqual(run.stdout, "")

    @unittest.skipUnless(shutil.which("man") and shutil.which("groff"), "man is not installed")
    def test_is_shown_without_warnings(self):
        run = subprocess.run(["man", "--warnings", "--local-file", MAN], stdout=subprocess.PIPE,
                             stderr=subprocess.PIPE, text=True, check=True)
        self.assertEqual(run.stderr, "")
        self.assertIn("EXIT STATUS", run.stdout)


@unittest.skipUnless(BASH_COMPLETION.exists(), "bash-completion is not installed")
class Completion(unittest.TestCase):
    def test_offers_every_subcommand(self):
        self.assertEqual(completions("brimtool", ""), set(subcommands(help_of())))
        self.assertEqual(completions("brimtool", "locale", ""), set(subcommands(help_of("locale"))))

    def test_offers_every_option(self):
        for command in [[]] + commands():
            with self.subTest(command=command):
                offered = completions("brimtool", *command, "-")
                self.assertEqual(offered, options(help_of(*command)))

    def test_offers_code_pages_that_the_tool_knows(self):
        offered = completions("brimtool", "transcode", "--from", "") - {"iconv:"}
        self.assertGreaterEqual(len(offered), 12)
        for page in offered:
            run = subprocess.run([BRIMTOOL, "transcode", "--from", page, "--to", page, "/dev/null"], check=False)
            self.assertEqual(run.returncode, 0, page)

    def test_offers_files(self):
        self.assertIn("decisions.md", completions("brimtool", "transcode", "deci"))
        self.assertIn("decisions.md", completions("brimtool", "escape", "--uri", "--input", "deci"))
        self.assertEqual(completions("brimtool", "match", "deci"), set())


if __name__ == "__main__":
    BRIMTOOL = sys.argv[1]
    unittest.main(argv=sys.argv[:1])
