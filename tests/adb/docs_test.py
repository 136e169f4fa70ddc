"""Every line of README and docs that uses adb is run as it stands there, a page at a time."""

import os
import pathlib
import re
import signal
import stat
import unittest

from desk import LAUNCHER, TREE, Desk, eventually

OURS = r"adb |tools/fleet |\./dev phone --adb "
BLOCK = re.compile(rf"^(?:    )?(?:\$ )?((?:{OURS}).*?)(?: {{2,}}#.*)?$")  # indented or fenced
INLINE = re.compile(r"`(adb (?:shell|exec-out|push|pull|logcat) [^`]+)`")
ENDS_WITH = {"adb shell 'dmesg": 1}  # grep finds no refusal; 0 else


def lines_of(page):
    """The commands of a page in its order. Prose wraps: what is not indented counts inside a fence only."""
    fenced = False
    for line in page.read_text().splitlines():
        fenced ^= line.startswith("```")
        found = BLOCK.match(line) if fenced or line.startswith("    ") else None
        yield from [found[1]] if found else INLINE.findall(line)


class Docs(Desk):
    def end_phone(self):
        while self.phones:
            self.end(self.phones.popitem()[1])
            self.run_in(["adb", "disconnect"])

    def run_line(self, line):
        with open(self.home / "output", "w+b") as output:
            done = self.run_in(["bash", "-c", line], stdout=output, stderr=output)
            output.seek(0)
            expected = next((status for begin, status in ENDS_WITH.items() if line.startswith(begin)), 0)
            self.assertEqual(done.returncode, expected, f"{line}\n{output.read().decode(errors='replace')}")
        if line.startswith("./dev"):
            pid_file = self.home / "init"
            eventually(pid_file.exists)
            init = int(pid_file.read_text())
            pid_file.unlink()
            self.addCleanup(os.kill, init, signal.SIGKILL)
            eventually(pathlib.Path(f"/proc/{init}/root/dev/bench/ready").exists)

    def setUp(self):
        super().setUp()
        (self.home / "tools").symlink_to(TREE / "tools")
        dev = self.home / "dev"  # without building
        dev.write_text(f'#!/bin/sh\nshift\nexec {LAUNCHER} --pid-file init "$@"\n')
        dev.chmod(dev.stat().st_mode | stat.S_IXUSR)

    def test_every_line(self):
        pages = {page: list(lines_of(page)) for page in [TREE / "README.md", *sorted(TREE.glob("docs/*.md"))]}
        pages = {page: lines for page, lines in pages.items() if lines}
        expected = {"README.md", "integration.md", "harrowmossctl.md", "many-phones.md"}
        self.assertLessEqual(expected, {page.name for page in pages})
        for page, lines in pages.items():
            self.boot({7000: ()})
            self.said(7000, "shell", "harrowmossctl start mobile && harrowmossctl stop")  # run 1
            for line in lines:
                if line.startswith("./dev"):  # the page goes on with phones of its own
                    self.end_phone()
                with self.subTest(page=page.name, line=line):
                    self.run_line(line)
            self.end_phone()


if __name__ == "__main__":
    unittest.main()
