"""Several bench phones with an adb server of their own. The tests run in a network namespace and a mount namespace
of their own (CMakeLists.txt), so the ports are free and mounts go away."""

import os
import pathlib
import socket
import subprocess
import sys
import tempfile
import time
import unittest

TREE = pathlib.Path(__file__).resolve().parents[2]
LAUNCHER = pathlib.Path(sys.argv.pop(1)).resolve()
LIMIT_S = 60  # for any wait


def eventually(done):
    deadline = time.monotonic() + LIMIT_S
    while not (found := done()):
        assert time.monotonic() < deadline, "not within a minute"
        time.sleep(0.02)
    return found


class Desk(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.home = pathlib.Path(directory.name)
        self.environment = {**os.environ, "HOME": directory.name, "TMPDIR": directory.name,
                            "ANDROID_ADB_SERVER_PORT": "5999"}
        self.addCleanup(self.run_in, ["adb", "-P", "5999", "kill-server"])
        self.phones = {}

    def run_in(self, command, **more):
        more = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.PIPE, **more}
        return subprocess.run(command, cwd=self.home, env=self.environment, timeout=LIMIT_S, check=False, **more)

    def adb(self, port, *words, **more):
        return self.run_in(["adb", "-s", f"127.0.0.1:{port}", *words], **more)

    def said(self, port, *words):
        done = self.adb(port, *words)
        self.assertEqual((done.returncode, done.stderr), (0, b""), words)
        return done.stdout.decode()

    def boot(self, phones):
        """{port: options}: phones that are connected and whose daemon listens."""
        for port, options in phones.items():
            with open(self.home / f"phone.{port}", "wb") as log:
                command = [LAUNCHER, "--adb", str(port), "--timeout", "600", *options, "--", "sleep", "600"]
                phone = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
            self.addCleanup(self.end, phone)
            self.phones[port] = phone
        for port in phones:
            eventually(lambda: self.listens(port))
            self.connect(port)
            eventually(lambda: self.adb(port, "shell", "ls", "/dev/bench/ready").returncode == 0)

    @staticmethod
    def listens(port):
        with socket.socket() as client:
            return client.connect_ex(("127.0.0.1", port)) == 0

    def connect(self, port):
        """Reconnects: adb's server itself retries a lost phone only every ten seconds."""
        serial = f"127.0.0.1:{port}"

        def connected():  # adb itself gives up early on a busy machine
            self.run_in(["adb", "disconnect", serial])
            return b"connected to" in self.run_in(["adb", "connect", serial]).stdout

        eventually(connected)

    @staticmethod
    def end(phone):
        phone.kill()
        phone.wait()
