"""Debian's adb and a bench phone."""

import subprocess
import unittest

from desk import Desk, eventually

PORT, ROOT, USER = 7001, 7002, 7003
MANY = "head -c 3000000 /dev/zero | tr '\\0' x"


class Adb(Desk):
    def test_commands(self):
        self.boot({PORT: []})
        rows = (  # words, standard input; exit status, standard output, standard error
            (("shell", "echo out; echo err >&2; exit 7"), b"", 7, b"out\n", b"err\n"),
            (("shell", "-T", "cat; exit 3"), b"\0in\r\n\xff", 3, b"\0in\r\n\xff", b""),
            (("shell", "read a b; echo $b"), b"one two\nthree\n", 0, b"two\n", b""),
            (("shell", "kill -9 $$"), b"", 137, b"", b""),
            (("shell", "no-such-command 2> /dev/null"), b"", 127, b"", b""),
            (("shell", f"{MANY}; {MANY} >&2"), b"", 0, b"x" * 3000000, b"x" * 3000000),
            (("shell", "true"), b"y" * 3000000, 0, b"", b""),
            (("shell", "-T", "wc -c"), b"y" * 3000000, 0, b"3000000\n", b""),
            (("exec-out", "printf 'a\\r\\nb\\0'"), b"", 0, b"a\r\nb\0", b""),
            (("shell",), b"echo one\nexit 5\n", 5, b"one\n", b""),
        )
        for words, given, *expected in rows:
            done = self.adb(PORT, *words, stdin=None, input=given)
            self.assertEqual([done.returncode, done.stdout, done.stderr], expected, words)
        shown = self.adb(PORT, "shell", "-tt", stdin=None, input=b"tty; stty_is=$(tty)\nexit 6\n")
        self.assertEqual(shown.returncode, 6)
        self.assertIn(b"/dev/pts/", shown.stdout)

    def test_files(self):
        self.boot({PORT: ["--sdcard-size", "4m"]})
        tree = self.home / "tree"
        (tree / "a/b").mkdir(parents=True)
        (tree / "a/b/large").write_bytes(bytes(range(256)) * 20000)  # 5 MB
        (tree / "empty").touch()
        (tree / "run me").write_text("#!/bin/sh\necho ran")
        (tree / "run me").chmod(0o700)
        self.said(PORT, "push", "tree", "/data/local/tmp")
        self.assertEqual(self.said(PORT, "shell", "'/data/local/tmp/tree/run me'"), "ran\n")
        self.said(PORT, "pull", "/data/local/tmp/tree", "back")
        self.assertEqual(self.run_in(["diff", "-r", "tree", "back"]).returncode, 0)
        rows = (  # failures print the reason and leave nothing
            (("push", "tree/a/b/large", "/sdcard/large"), b"No space left on device", "/sdcard/large"),
            (("push", "tree/empty", "/system/bin/empty"), b"Read-only file system", "/system/bin/empty"),
            (("push", "tree/empty", "/data/system/empty"), b"Permission denied", "/data/system/empty"),
            (("pull", "/data/local/tmp/none", "none"), b"does not exist", "/data/local/tmp/none"),
        )
        for words, reason, path in rows:
            done = self.adb(PORT, *words)
            self.assertEqual(done.returncode, 1, words)
            self.assertIn(reason, done.stdout + done.stderr)
            self.assertEqual(self.adb(PORT, "shell", "ls", path).returncode, 1, words)

    def test_sessions_and_a_lost_connection(self):
        self.boot({PORT: []})
        hanging = [subprocess.Popen(["adb", "-s", f"127.0.0.1:{PORT}", *words], env=self.environment,
                                    stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                   for words in (["shell", "sleep 1001"], ["shell", "yes"], ["exec-out", "yes"],
                                 ["shell", "-tt", "sleep 1002"])]
        for session in hanging:
            self.addCleanup(session.communicate)
            self.addCleanup(session.kill)
        eventually(lambda: len(self.said(PORT, "shell", "pgrep -f '^(sleep 100.|yes)' || true").split()) == 4)
        self.assertEqual(self.said(PORT, "shell", "echo $((6 * 7))"), "42\n")
        self.run_in(["adb", "disconnect", f"127.0.0.1:{PORT}"])
        for session in hanging:
            session.communicate(timeout=60)
        self.connect(PORT)
        eventually(lambda: self.said(PORT, "shell", "pgrep -f '^(sleep 100.|yes)' || true") == "")

    def test_who_may_what(self):
        """The table of docs/many-phones.md. Exit statuses of root, shell and a user build's shell."""
        user_build = ["--prop", "ro.debuggable=0", "--prop", "ro.build.type=user"]
        self.boot({ROOT: ["--adb-user", "root"], PORT: [], USER: user_build})
        (self.home / "run").mkdir()
        (self.home / "run/main.txt").write_text("a line\n")
        for port in (ROOT, PORT, USER):  # a finished run on each
            self.said(port, "push", "run", "/sdcard/zelkalog/1#01-01_08-00-00")
        self.assertIn("restarting adbd as root", self.said(PORT, "root"))
        for port in (ROOT, PORT):  # and one left behind
            left = "/data/misc/zelkalog/2#01-02_08-00-00"
            self.said(port, "shell", f"mkdir -m 777 {left}; umask 077; echo x > {left}/system_stop.prop")
        self.assertEqual(self.said(PORT, "unroot"), "restarting adbd as non root\n")
        rows = (
            ("id | grep -q root", 0, 1, 1),
            ("harrowmossctl version", 0, 0, 3),
            ("harrowmossctl types", 0, 0, 0),
            ("harrowmossctl runs | grep -q complete", 0, 0, 0),
            ("harrowmossctl pack 1 -o -", 0, 0, 0),
            ("harrowmossctl pack 2 -o -", 0, 1, 2),
            ("harrowmossctl start mobile", 0, 0, 3),
            ("harrowmossctl status | grep -q 'logging: on'", 0, 0, 1),
            ("harrowmossctl stop", 0, 0, 3),
            ("harrowmossctl feedback --select general /sdcard/report", 0, 0, 3),
            ("ls /data/misc/zelkalog", 0, 0, 1),
            ("ls /data/tombstones", 0, 1, 1),
            ("setprop persist.sys.zelka.log.del true", 0, 1, 1),
            ("logcat -d", 0, 0, 0),
        )
        for command, *expected in rows:
            found = [self.adb(port, "shell", command).returncode for port in (ROOT, PORT, USER)]
            self.assertEqual(found, expected, command)
        self.assertIn("cannot run as root", self.said(USER, "root"))
        self.assertIn("already", self.said(ROOT, "root"))


if __name__ == "__main__":
    unittest.main()
