"""The parts of tools/fleet that need no phone."""

import hashlib
import io
import pathlib
import sys
import tarfile
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools/phones"))

# pylint: disable=wrong-import-position
import archive
import phone

FILES = {"1#a/main.txt": b"a line\n", "1#a/odd\n\x7f": b"2", "1#a/\udcff": b"3", "1#a/empty": b""}


def manifest(files, sums=None):
    sums = {**{path: hashlib.sha256(content).hexdigest() for path, content in files.items()}, **(sums or {})}
    rows = [f"{len(content):15} {sums[path]}  {archive.one_line(path)}\n" for path, content in files.items()]
    return f"harrowmoss-manifest: 1\nname: 1#a\nstate: complete\nfiles: {len(rows)}\n\n" + "".join(rows)


class Parts(unittest.TestCase):
    def test_devices(self):
        text = "* daemon started\nList of devices attached\nA1\tdevice\n1.2.3.4:5\toffline\nB\tno right; x\n\n"
        self.assertEqual(phone.parse_devices(text), {"A1": "device", "1.2.3.4:5": "offline", "B": "no right; x"})
        self.assertEqual(phone.parse_devices("List of devices attached\n\n"), {})

    def test_the_end_of_a_command(self):
        for text, expected in (
                ("exit 0\n", (0, "")), ("no room\nexit 1\r\n", (1, "no room\n")), ("exit 255", (255, "")), ("", None),
                ("error: closed\n", None), ("exit \n", None), ("the exit 3\n", None), ("exit 3\nmore\n", None)):
            self.assertEqual(phone.parse_end(text), expected, text)

    def test_runs(self):
        rows = [{"name": name, "sequence": int(name[:-2]), "state": "complete"} for name in ("9#a", "12#b")]
        busy = rows + [{"name": "13#c", "sequence": 13, "state": "capturing"}]
        for runs, wanted, expected in ((rows, "latest", "12#b"), (rows, "9", "9#a"), (busy, "12#b", "12#b"),
                                       (rows, "2", 2), ([], "latest", 2), (busy, "latest", 1), (busy, "13", 1)):
            try:
                found = archive.choose_run(runs, wanted)["name"]
            except phone.PhoneError as error:
                found = error.code
            self.assertEqual(found, expected, wanted)

    def verdict(self, text, files, change=lambda data: data):
        with tempfile.TemporaryDirectory() as place:
            path = pathlib.Path(place, "run.tar.gz")
            with tarfile.open(path, "w:gz", errors="surrogateescape", encoding="utf-8") as pack:
                for name, content in {"1#a.manifest.txt": text.encode(errors="surrogateescape"), **files}.items():
                    member = tarfile.TarInfo(name)
                    member.size = len(content)
                    pack.addfile(member, io.BytesIO(content))
            path.write_bytes(change(path.read_bytes()))
            try:
                return archive.verify(path)["files"]
            except phone.PhoneError as error:
                self.assertEqual(error.code, phone.DAMAGED, error)
                return str(error)

    def test_archives(self):
        main = "1#a/main.txt"
        changed = {**FILES, main: b"b line\n"}
        fewer = {path: content for path, content in FILES.items() if path != main}
        unread = {main: archive.NOT_SUMMED}
        whole = manifest(FILES)
        for what, expected in (
                ((whole, FILES), "4"),
                ((manifest(FILES, unread), changed), "4"), ((manifest(FILES, unread), fewer), "4"),
                ((whole, changed), f"{main} is not what its manifest says"), ((whole, fewer), f"{main} is missing"),
                ((manifest(fewer), FILES), f"{main} is not in its manifest"),
                *(((text, FILES), "its manifest cannot be read")
                  for text in (whole[:-40], whole.split("\n\n")[0], ""))):
            self.assertEqual(self.verdict(*what), expected)
        for change in (lambda data: data[:-30], lambda data: data[:40], lambda data: b"",
                       lambda data: b"no archive" * 9, lambda data: data[:60] + b"\0\0\0\0" + data[64:]):
            self.assertNotIn(self.verdict(whole, FILES, change), ("4", ""))


if __name__ == "__main__":
    unittest.main()
