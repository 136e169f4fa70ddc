"""What the checks of the device kit share: where things are, and how a tool is run."""

import os
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
KIT = ROOT / "device"

# The folders whose code runs on a phone; the client, the protocol and the model are linked into their own binary.
DAEMON_FOLDERS = ("base", "selflog", "storage", "debuglog", "feedback", "input", "catchers", "daemon",
                  "protocol", "model")
VARIANTS = ("user", "userdebug")


class MissingTool(Exception):
    """A program that a check cannot do without is not installed."""


class Platform:
    """The platform's own files: policy sources, headers and libraries of Android 13. Two layouts are known:
    a folder with sepolicy/ and vndk33/, and a tree of the platform."""

    def __init__(self, folder):
        self.sepolicy = _first(folder / "sepolicy", folder / "system/sepolicy")
        vndk = _first(folder / "vndk33", folder / "prebuilts/vndk/v33/arm64")
        self.include = vndk / "include"
        self.library_folders = sorted({path.parent for path in vndk.rglob("*.so")})

    @staticmethod
    def find(asked=None):
        """The platform's files in `asked`, $PLATFORM_DIR or ../shared/platform; None without any of them.
        A folder that was named and is not there is an error."""
        named = asked or os.environ.get("PLATFORM_DIR")
        folder = pathlib.Path(named).resolve() if named else ROOT.parent / "shared/platform"
        if folder.is_dir():
            return Platform(folder)
        if named:
            raise MissingTool(f"{named} is not a folder with the platform's files")
        return None


def _first(*candidates):
    for path in candidates:
        if path.is_dir():
            return path
    raise MissingTool(f"there is neither {' nor '.join(map(str, candidates))}")


def run(arguments, **options):
    """Runs a program; gives its CompletedProcess with text output, whatever its status."""
    try:
        return subprocess.run([str(a) for a in arguments], capture_output=True, text=True, check=False,
                              **options)
    except FileNotFoundError as error:
        raise MissingTool(f"{arguments[0]} is not installed (./dev setup)") from error


def rows(path):
    """(line number, words) of a file of rows: '#' begins a comment, blank lines do not count."""
    for number, line in enumerate(path.read_text().splitlines(), 1):
        words = line.split("#", 1)[0].split()
        if words:
            yield number, words


def daemon_sources(root=ROOT):
    """Every source and header of the daemon."""
    return [path for folder in DAEMON_FOLDERS for path in sorted((root / folder).glob("*"))
            if path.suffix in (".cpp", ".h")]


def without_comments(text):
    """C++ text with its comments blanked; string literals, which may hold '//', stay."""
    pattern = re.compile(r'"(?:\\.|[^"\\\n])*"|//[^\n]*|/\*.*?\*/', re.S)
    return pattern.sub(lambda m: m.group() if m.group().startswith('"') else " ", text)
