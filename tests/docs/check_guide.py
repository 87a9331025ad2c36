#!/usr/bin/env python3
"""Checks docs/guide against what it tells of.

usage: check_guide.py SAMPLES-DIRECTORY [BRIMTOOL]

SAMPLES-DIRECTORY holds the programs that were built from docs/guide/samples.
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import textwrap
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
GUIDE = TREE / "docs/guide"
PAGES = sorted(GUIDE.glob("*.md"))
SAMPLES = sorted((GUIDE / "samples").glob("*.cpp"))
SOURCES = [path for root in ("server", "platform") for path in sorted((TREE / root).rglob("*"))
           if path.suffix in (".cpp", ".h")]
PROGRAMS = pathlib.Path()
BRIMTOOL = None


def blocks(page, language):
    """The fenced blocks of a language."""
    return re.findall(rf"^```{language}\n(.*?)^```$", page.read_text(), re.M | re.S)


def rows(page):
    """The rows of the tables, each a list of cells."""
    return [[cell.strip() for cell in line.strip("| ").split("|")]
            for line in page.read_text().split("\n") if line.startswith("|")]


def dedented(text):
    return textwrap.dedent(text).strip()


class Samples(unittest.TestCase):
    def test_code_of_pages_stands_in_their_samples(self):
        for page in PAGES:
            name = "first" if page.stem == "index" else page.stem.replace("-", "_")
            for block in blocks(page, "cpp"):
                with self.subTest(page=page.name, block=block):
                    sample = (GUIDE / "samples" / f"{name}.cpp").read_text()
                    indented = textwrap.indent(dedented(block), "    ")
                    self.assertTrue(dedented(block) in sample or indented in sample)

    def test_the_first_page_shows_the_whole_first_program(self):
        self.assertIn((GUIDE / "samples/first.cpp").read_text(), blocks(GUIDE / "index.md", "cpp"))

    def test_each_sample_was_built(self):
        for sample in SAMPLES:
            self.assertTrue((PROGRAMS / sample.stem).is_file(), sample.name)


class Sessions(unittest.TestCase):
    def test_commands_print_what_the_pages_tell(self):
        path = [str(PROGRAMS), os.environ["PATH"]] + ([str(BRIMTOOL.parent)] if BRIMTOOL else [])
        environment = {**os.environ, "PATH": ":".join(path), "LC_ALL": "C.UTF-8"}
        for page in PAGES:
            for block in blocks(page, "console"):
                for command, expected in re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", block, re.M):
                    if "brimtool" in command and BRIMTOOL is None:
                        continue
                    with self.subTest(page=page.name, command=command):
                        run = subprocess.run(["bash", "-c", command], cwd=TREE, env=environment, text=True,
                                             stdout=subprocess.PIPE, timeout=60)
                        self.assertEqual(run.stdout.rstrip("\n"), expected.rstrip("\n"))


class Links(unittest.TestCase):
    def test_links_lead_somewhere(self):
        for page in PAGES + [TREE / "README.md"]:
            for target in re.findall(r"\]\(([^)#]+)\)", page.read_text()):
                if "://" not in target:
                    with self.subTest(page=page.name):
                        self.assertTrue((page.parent / target).exists(), target)

    def test_the_first_page_links_all_others(self):
        index = (GUIDE / "index.md").read_text()
        for page in PAGES:
            if page.stem != "index":
                self.assertIn(f"]({page.name})", index)

    def test_headers_and_operations_exist(self):
        text = "\n".join(path.read_text() for path in SOURCES) + (TREE / "server/CMakeLists.txt").read_text()
        for page in PAGES:
            for name in re.findall(r"`([A-Za-z_:]+?(?:\(\)|\.h))`", page.read_text()):
                word = re.sub(r"\(\)$", "", name).split("::")[-1]
                with self.subTest(page=page.name, name=name):
                    self.assertRegex(text, rf"\b{re.escape(word)}\b")


class EnvironmentVariables(unittest.TestCase):
    page = GUIDE / "environment-variables.md"

    def read_by_the_library(self):
        found = set()
        for path in SOURCES:
            text = path.read_text()
            if "etenv" not in text:
                continue
            found.update(re.findall(r"[Gg]etenv(?:WithDefault)?\(L?\"([A-Z_]+)\"", text))
            found.update(re.findall(r"^constexpr const char\* kVariable = \"([A-Z_]+)\"", text, re.M))
            for call in re.findall(r"getWorkDirectory\((L\"[^)]*)\)", text):
                found.update(re.findall(r"L\"([A-Z_]{6,})\"", call))
        return found

    def in_the_tables(self):
        return {name for row in rows(self.page) for name in re.findall(r"`([A-Z_]{3,})`", row[0])}

    def test_all_that_are_read_are_told_of(self):
        read = self.read_by_the_library()
        self.assertGreater(len(read), 25)
        self.assertEqual(read - self.in_the_tables(), set())

    def test_all_that_are_told_of_are_read(self):
        changed_only = {"LD_LIBRARY_PATH"}
        self.assertEqual(self.in_the_tables() - self.read_by_the_library() - changed_only, set())


class CodePages(unittest.TestCase):
    def test_the_table_is_the_list_of_the_tool(self):
        if BRIMTOOL is None:
            self.skipTest("built without tools")
        listed = json.loads(subprocess.run([BRIMTOOL, "codepages", "--json"], stdout=subprocess.PIPE,
                                           check=True).stdout)
        numbers = {str(page["number"]): page["names"][0] for page in listed["codePages"]}
        told = {row[0]: row[1] for row in rows(GUIDE / "code-pages.md") if row[0].isdigit()}
        self.assertEqual(told, numbers)


if __name__ == "__main__":
    PROGRAMS = pathlib.Path(sys.argv[1])
    BRIMTOOL = pathlib.Path(sys.argv[2]) if len(sys.argv) > 2 else None
    unittest.main(argv=sys.argv[:1])
