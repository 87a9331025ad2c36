#!/usr/bin/env python3
"""Runs the programs of examples/.

usage: check_examples.py PROGRAMS-DIRECTORY
"""
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

PROGRAMS = pathlib.Path()


def run(program, *arguments, text_in=b"", **variables):
    """(exit status, standard output, standard error) of a program."""
    environment = {**os.environ, "LC_ALL": "C.UTF-8", **variables}
    done = subprocess.run([PROGRAMS / program, *arguments], input=text_in, env=environment,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60, check=False)
    return done.returncode, done.stdout.decode(), done.stderr.decode()


class InTemporaryDirectory(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.directory = pathlib.Path(temporary.name)


class ReadSettings(unittest.TestCase):
    def test_tells_names_kinds_and_items(self):
        text = "# ports\nPort = 80\n\nHosts= a, bü ,c\nTitle =  x y \n".encode()
        self.assertEqual(run("read_settings", text_in=text),
                         (0, "port: number [80]\nhosts: list [a] [bü] [c]\ntitle: text [x y]\n", ""))

    def test_names_the_line_that_is_no_setting(self):
        self.assertEqual(run("read_settings", text_in=b"a=1\nbad\n"),
                         (1, "a: number [1]\n", 'line 2: no "="\n'))


class TranscodeFile(InTemporaryDirectory):
    def convert(self, source, target, data):
        (self.directory / "in").write_bytes(data)
        status, out, _ = run("transcode_file", source, target, self.directory / "in", self.directory / "out")
        return status, out, (self.directory / "out").read_bytes()

    def test_converts(self):
        self.assertEqual(self.convert("28591", "65001", b"Gr\xfc\xdf"),
                         (0, "4 bytes to 6, 0 characters replaced\n", "Grüß".encode()))

    def test_counts_what_the_target_lacks(self):
        self.assertEqual(self.convert("65001", "28591", "a€😀".encode()),
                         (0, "8 bytes to 3, 2 characters replaced\n", b"a??"))

    def test_an_unknown_page_is_a_failure(self):
        (self.directory / "in").write_bytes(b"a")
        status, out, err = run("transcode_file", "4711", "65001", self.directory / "in", self.directory / "out")
        self.assertEqual(status, 2)
        self.assertEqual(out, "Encoding not supported error number -1, 4711\n")
        self.assertIn("unknown code page", err)


class ServerStartup(InTemporaryDirectory):
    def test_makes_the_directories_and_ends(self):
        domain = self.directory / "domain"
        logs = domain / "servers/kros7/logs"
        self.assertEqual(run("server_startup", DOMAIN_HOME=str(domain), COMPONENT_NAME="kros7"),
                         (0, f"logs: {logs}/kros7-diagnostic.log\ndirectory exists: yes\nstopped\n", ""))
        self.assertTrue(logs.is_dir())
        self.assertTrue((domain / "config/plxconfig/hxconfig/KROS").is_dir())


class ThreadValues(unittest.TestCase):
    def test_adds_up_the_words_of_all_threads(self):
        self.assertEqual(run("thread_values", "a b c", " d  e ", ""), (0, "5 words in 3 texts\n", ""))


if __name__ == "__main__":
    PROGRAMS = pathlib.Path(sys.argv[1])
    unittest.main(argv=sys.argv[:1])
