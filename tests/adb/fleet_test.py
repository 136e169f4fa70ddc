"""tools/fleet with eight bench phones, real adb, a phone that dies and a full disk."""

import json
import os
import pathlib
import signal
import subprocess
import tarfile
import unittest

from desk import TREE, Desk, eventually

PORTS = range(7001, 7009)
VICTIM = 7008
DONE, LOST, TOO_SLOW, NOT_WRITTEN = 0, 6, 7, 8
NOISE = "head -c 40m /dev/urandom > /sdcard/zelkalog/$(ls /sdcard/zelkalog)/noise"  # a pull of seconds


class Fleet(Desk):
    def fleet(self, *words):
        done = self.run_in([TREE / "tools/fleet", *words, "--json"])
        answer = json.loads(done.stdout)
        found = {row["serial"].split(":")[1]: row["exit"] for row in answer["phones"]}
        self.assertEqual([answer["exit"], max(found.values())], [done.returncode] * 2, done.stderr)
        return {int(port): code for port, code in found.items()}

    def expect(self, words, others, **special):
        expected = {port: special.get(f"_{port}", others) for port in PORTS}
        self.assertEqual(self.fleet(*words), expected, words)

    def verified(self, folder):
        """The phones with an archive there, verified as in docs/harrowmossctl.md; there must be nothing else."""
        found = []
        for path in filter(pathlib.Path.is_file, folder.rglob("*")):
            self.assertRegex(path.name, r"^\d+#[0-9_-]+\.tar\.gz$")
            out = self.home / "unpacked" / folder.name / path.parent.name
            out.mkdir(parents=True)
            with tarfile.open(path) as archive:
                archive.extractall(out)
            check = "sed '1,/^$/d' *.manifest.txt | cut -c17- | sha256sum -c --quiet"
            self.assertEqual(subprocess.run(check, shell=True, cwd=out, check=False).returncode, 0, path)
            port = path.parent.name.split("_")[1]
            logs = b"".join(log.read_bytes() for log in out.rglob("*-main.txt"))
            self.assertIn(f"line of {port}".encode(), logs)
            found.append(int(port))
        return sorted(found)

    def capture(self, port):
        self.assertEqual(self.fleet("start", "mobile", "-s", f"127.0.0.1:{port}"), {port: DONE})
        self.said(port, "shell", f"log -t Fleet line of {port}")
        self.assertEqual(self.fleet("stop", "-s", f"127.0.0.1:{port}"), {port: DONE})

    def begin_pull(self, folder):
        """A phone that is transferring the large run."""
        pull = subprocess.Popen([TREE / "tools/fleet", "pull", "latest", folder.name], cwd=self.home, text=True,
                                env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        place = folder / f"127.0.0.1_{VICTIM}"
        eventually(lambda: any(path.stat().st_size > 1 << 20 for path in place.glob(".*.part")))
        return pull

    def test_eight_phones(self):
        self.boot(dict.fromkeys(PORTS, ()))
        self.expect(["start", "mobile"], DONE)
        for port in PORTS:
            self.said(port, "shell", f"log -t Fleet line of {port}")
        self.expect(["pull", "latest", "early"], 1)  # still captured
        self.expect(["stop"], DONE)
        self.expect(["pull", "99", "early"], 2)
        self.said(VICTIM, "shell", NOISE)

        full, desk = self.home / "full", self.home / "desk"
        for folder, size in ((full, "24k"), (desk, "300m")):
            folder.mkdir()
            subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", folder], check=True)
            self.addCleanup(subprocess.run, ["umount", folder], check=True)
        codes = self.fleet("pull", "latest", "full")
        self.assertEqual(codes[VICTIM], NOT_WRITTEN)
        self.assertEqual({code for code in codes.values()}, {DONE, NOT_WRITTEN})
        self.assertEqual(self.verified(full), [port for port in PORTS if codes[port] == DONE])

        for sign in (signal.SIGINT, signal.SIGTERM):
            pull = self.begin_pull(desk)
            pull.send_signal(sign)
            pull.communicate()
            self.assertEqual(list((desk / f"127.0.0.1_{VICTIM}").iterdir()), [])
        pull = self.begin_pull(desk)
        self.assertEqual(self.fleet("pull", "latest", "desk", "-s", f"127.0.0.1:{VICTIM}"), {VICTIM: NOT_WRITTEN})
        self.end(self.phones[VICTIM])
        output, progress = pull.communicate()
        self.assertEqual(pull.returncode, LOST)
        self.assertRegex(output, rf"127.0.0.1:{VICTIM}  lost  .*the phone went away")
        self.assertIn("\n7 of 8 done\n", output)
        for port in PORTS:
            self.assertIn(f"127.0.0.1:{port}  {'lost' if port == VICTIM else 'done'}\n", progress)
        self.assertEqual(self.verified(desk), [port for port in PORTS if port != VICTIM])
        self.expect(["status"], DONE, **{f"_{VICTIM}": LOST})

        self.boot({VICTIM: ()})
        self.capture(VICTIM)
        old = {path: path.stat().st_ino for path in desk.rglob("*.tar.gz")}
        self.expect(["pull", "latest", "desk"], DONE)
        self.assertEqual({path: path.stat().st_ino for path in old}, old)  # not pulled again
        (self.home / "unpacked/desk").rename(self.home / "unpacked/before")
        self.assertEqual(self.verified(desk), list(PORTS))

    def test_bounds(self):
        """A phone that does not answer takes its own time, not the others'."""
        self.boot({7001: (), 7002: ()})
        self.assertEqual(self.fleet("status", "-s", "127.0.0.1:7001", "127.0.0.1:7009"), {7001: DONE, 7009: LOST})
        self.assertEqual(self.fleet("start", "mobile"), {7001: DONE, 7002: DONE})
        init = int(subprocess.run(["pgrep", "-P", str(self.phones[7002].pid)], capture_output=True, check=True).stdout)
        adbd = next(pid for pid in map(int, pathlib.Path(f"/proc/{init}/task/{init}/children").read_text().split())
                    if pathlib.Path(f"/proc/{pid}/comm").read_text() == "adbd\n")
        os.kill(adbd, signal.SIGSTOP)  # a phone that hangs
        self.assertEqual(self.fleet("status", "--timeout", "2"), {7001: DONE, 7002: TOO_SLOW})
        os.kill(adbd, signal.SIGCONT)
        self.assertEqual(self.fleet("stop"), {7001: DONE, 7002: DONE})


if __name__ == "__main__":
    unittest.main()
