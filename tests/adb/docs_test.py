"""README and docs are run as they stand there, a page at a time: every line that uses adb must succeed, and what
stands below a command of a ```console block must be what the command prints.

```console          the commands run on the desk, beside adb and tools/fleet
```console phone    they run as root in the page's phone, where run 1 lies in the store
<!-- phone OPTIONS -->    before a block: a new phone with these options of the launcher
<!-- run COMMAND -->      before a block: run in the phone, output and status not looked at

In expected output a line `...` stands for any lines and `…` for anything in a line. Numbers, checksums, units of size
and widths of columns are not compared.
"""

import os
import pathlib
import re
import shlex
import signal
import stat
import unittest
from typing import NamedTuple, Optional

from desk import LAUNCHER, TREE, Desk, eventually

OURS = r"adb |tools/fleet |\./dev phone --adb "
BLOCK = re.compile(rf"^(?:    )?((?:{OURS}).*?)(?: {{2,}}#.*)?$")  # indented or fenced
INLINE = re.compile(r"`(adb (?:shell|exec-out|push|pull|logcat) [^`]+)`")
SETUP = re.compile(r"<!-- (phone|run)(?: (.*))? -->$")
PORT = 7000


class Step(NamedTuple):
    kind: str  # "desk": run there; "phone": run in it; "run": the same, unchecked; "boot": text is a phone's options
    text: str
    output: Optional[list]  # lines; None: not compared


def steps_of(page):
    """What a page says to do, in its order. Prose wraps: what is not indented counts inside a fence only."""
    steps, fence = [], None
    for line in page.read_text().splitlines():
        if line.startswith("```"):
            fence = line[3:].strip() if fence is None else None
        elif fence is not None and fence.startswith("console"):
            if line.startswith("$ "):
                steps.append(Step("phone" if fence == "console phone" else "desk", line[2:], []))
            else:
                steps[-1].output.append(line)
        elif found := SETUP.match(line):
            steps.append(Step("boot" if found[1] == "phone" else "run", found[2] or "", None))
        elif found := BLOCK.match(line) if fence is not None or line.startswith("    ") else None:
            steps.append(Step("desk", found[1], None))
        else:
            steps += [Step("desk", text, None) for text in INLINE.findall(line)]
    return steps


def without_numbers(line):
    """A line without what differs from one run to the next."""
    line = re.sub(r"\b[0-9a-f]{64}\b|\b0x[0-9a-f]+|\d+(\.\d+)?", "0", line)
    line = re.sub(r"\b0 ([KMGT]i)?B\b", "0 B", line)
    return " ".join(line.split())


def matches(expected, printed):
    def pattern(line):
        return "(?:.*\n)*?" if line == "..." else re.escape(without_numbers(line)).replace("…", ".*") + "\n"

    return re.fullmatch("".join(map(pattern, expected)), "".join(without_numbers(line) + "\n" for line in printed))


class Docs(Desk):
    def end_phones(self):
        while self.phones:
            self.end(self.phones.popitem()[1])
            self.run_in(["adb", "disconnect"])

    def boot_page(self, options, user="shell"):
        self.end_phones()
        self.boot({PORT: ("--adb-user", user, *shlex.split(options))})

    def run_step(self, step):
        in_phone = f"{{ {step.text}\n}} 2>&1"  # adb keeps no order between the two outputs
        words = ["bash", "-c", step.text] if step.kind == "desk" else ["adb", "shell", in_phone]
        with open(self.home / "output", "w+b") as output:
            done = self.run_in(words, stdout=output, stderr=output)
            output.seek(0)
            printed = output.read().decode(errors="replace")
        if step.output:
            self.assertTrue(matches(step.output, printed.splitlines()),
                            "\n".join([f"$ {step.text}", "-- printed:", printed, "-- in the page:", *step.output]))
        elif step.kind != "run":
            finds_nothing = step.text.startswith("adb shell 'dmesg")  # grep, and no refusal
            self.assertEqual(done.returncode, 1 if finds_nothing else 0, f"{step.text}\n{printed}")
        if step.text.startswith("./dev"):
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

    def test_every_page(self):
        pages = {page: steps_of(page) for page in [TREE / "README.md", *sorted(TREE.glob("docs/*.md"))]}
        pages = {page: steps for page, steps in pages.items() if steps}
        expected = {"README.md", "integration.md", "harrowmossctl.md", "many-phones.md"}
        self.assertLessEqual(expected, {page.name for page in pages})
        only = os.environ.get("DOCS_PAGE", "")  # to work on one
        for page, steps in pages.items():
            if only not in page.name:
                continue
            self.boot_page("", "root" if any(step.kind == "phone" for step in steps) else "shell")
            self.said(PORT, "shell", "harrowmossctl start mobile && harrowmossctl stop")  # run 1
            for step in steps:
                with self.subTest(page=page.name, line=step.text):
                    if step.kind == "boot":
                        self.boot_page(step.text, "root")
                        continue
                    if step.text.startswith("./dev"):  # the page goes on with phones of its own
                        self.end_phones()
                    self.run_step(step)
            self.end_phones()


if __name__ == "__main__":
    unittest.main()
