"""How ./dev installs its packages, with stubs for dpkg and apt: requests, messages, exit status."""
import os
import shutil
import signal
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

TREE = Path(__file__).resolve().parents[2]
LIMIT_S = 30
DEMO = {"cmake", "g++", "iproute2", "mksh", "ninja-build", "toybox"}
NETWORK, UNKNOWN = "E: Unable to fetch some archives", "E: Unable to locate package mksh"
STUBS = {  # STATES: a package's state for those that dpkg knows; APT: the output of a failing apt-get, or "slow"
    "dpkg-query": r"""status=0; format=${2#-f=}; shift 2
        for package; do
            state=$(sed -n "s/^$package //p" "$STATES"); [ "$state" ] || { status=1; continue; }
            format_of=${format//'${Package}'/$package}; printf "${format_of//'${db:Status-Status}'/$state}"
        done; exit $status""",
    "dpkg": "",
    "apt-get": r"""echo "$@" >> "$ASKED"
        [ "$APT" != slow ] || exec sleep 1000
        case $1,$APT in update,*|*,) ;; *) echo "$APT"; exit 100 ;; esac""",
    "id": "echo $USER_ID",
    "sudo": '[ "$1" != -v ] || exit ${SUDO:-0}; "$@"',
}


class Setup(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = Path(directory.name)
        (self.root / "bin").mkdir()
        for name, text in STUBS.items():
            (self.root / "bin" / name).write_text("#!/bin/bash\n" + text)
            (self.root / "bin" / name).chmod(0o755)
        shutil.copy(TREE / "dev", self.root)
        shutil.copytree(TREE / "tools/dev", self.root / "tools/dev")

    def start(self, command, states, **stub):
        for name, lines in (("states", [f"{k} {v}\n" for k, v in states.items()]), ("asked", [])):
            (self.root / name).write_text("".join(lines))
        environment = {"APT": "", "USER_ID": "0", **stub, "PATH": f"{self.root}/bin:/usr/bin:/bin",
                       "STATES": f"{self.root}/states", "ASKED": f"{self.root}/asked"}
        return subprocess.Popen([self.root / "dev", *command], env=environment, text=True, start_new_session=True,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))

    def wait_for(self, done):
        deadline = time.monotonic() + LIMIT_S
        while not done():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.02)

    def asked(self):
        lines = [line.split() for line in (self.root / "asked").read_text().splitlines()]
        return {word for line in lines if line[0] == "install" for word in line[1:] if word[0] != "-" and "=" not in word}

    def test_what_is_asked_for_and_said(self):
        half = {"g++": "installed", "cmake": "installed", "mksh": "half-configured", "toybox": "installed"}
        everything = dict.fromkeys(DEMO, "installed")
        check = everything | dict.fromkeys((
            "adb", "clang", "clang-format", "git", "libc++-14-dev", "libc++abi-14-dev", "libclang-rt-14-dev",
            "libfaketime", "libgtest-dev", "llvm", "nlohmann-json3-dev", "python3"), "installed")
        for command, states, stub, asked, said, status in (
                (["setup", "demo"], {}, {}, DEMO, "everything is installed", 0),
                (["setup", "demo"], half, {}, {"iproute2", "mksh", "ninja-build"}, "everything is installed", 0),
                (["setup", "demo"], everything, {}, set(), "everything is installed", 0),
                (["setup", "demo"], everything, {"USER_ID": "1000"}, {"uidmap"}, "everything is installed", 0),
                (["setup", "demo"], {}, {"USER_ID": "1000", "SUDO": "1"}, set(), "sudo refused", 1),
                (["setup", "phone", "soak"], everything, {}, {"libfaketime"}, "for ./dev phone soak", 0),
                (["phone", "--adb=1"], everything | {"python3": "installed"}, {"APT": UNKNOWN}, {"adb"}, UNKNOWN, 1),
                (["setup", "nonsense"], {}, {}, set(), "no command nonsense", 1),
                (["demo"], {}, {"APT": NETWORK}, DEMO, NETWORK, 1),
                (["test"], everything | {"clang": "installed"}, {"APT": UNKNOWN, "PLATFORM_DIR": "."},
                 {"libc++-14-dev", "libc++abi-14-dev", "libgtest-dev", "nlohmann-json3-dev", "python3"},
                 UNKNOWN, 1),
                (["setup", "check"], check, {}, set(), "everything is installed", 0),
                (["setup", "check"], check, {"PLATFORM_DIR": "."}, {"checkpolicy", "lld", "m4", "secilc"},
                 "everything is installed", 0)):
            with self.subTest(command=command, states=states, **stub):
                dev = self.start(command, states, **stub)
                out, _ = dev.communicate(timeout=LIMIT_S)
                self.assertEqual((self.asked(), dev.returncode), (asked, status), out)
                self.assertIn(said, out)
                # A failure message also says what to install by hand.
                self.assertEqual("as root: apt-get update; apt-get install" in out, status != 0 and "nonsense" not in command)

    def test_ctrl_c_leaves_nothing_running(self):
        dev = self.start(["demo"], {}, APT="slow")
        self.addCleanup(dev.stdout.close)
        self.wait_for(lambda: (self.root / "asked").read_text())
        os.killpg(dev.pid, signal.SIGINT)
        out, _ = dev.communicate(timeout=LIMIT_S)  # ends when the last process has closed its output
        self.assertEqual((dev.returncode, "goes on from here: ./dev demo" in out), (130, True), out)
        with self.assertRaises(ProcessLookupError):
            self.wait_for(lambda: os.killpg(dev.pid, 0))


if __name__ == "__main__":
    unittest.main()
