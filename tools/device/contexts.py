"""Labels of paths: by file_contexts, as libselinux looks them up, and by genfs_contexts."""

import ctypes
import pathlib
import re
import tempfile

_KINDS = {"file": 0o100000, "dir": 0o040000, "lnk_file": 0o120000, "chr_file": 0o020000, "socket": 0o140000,
          "sock_file": 0o140000, "fifo_file": 0o010000}
_CONTEXT = re.compile(r"u:object_r:(\w+):s0$")


class FileContexts:
    """The rows of several files, later ones over earlier ones; `error` when they cannot be read."""

    def __init__(self, paths):
        self._library = ctypes.CDLL("libselinux.so.1")
        self._library.selabel_open.restype = ctypes.c_void_p
        bad = [f"{path.name}: {line}" for path in paths for line, label in self.rows(path) if label is None]
        with tempfile.TemporaryDirectory(prefix="contexts") as scratch:
            joined = pathlib.Path(scratch) / "file_contexts"
            joined.write_text("".join(path.read_text() + "\n" for path in paths))
            # SELABEL_OPT_PATH is 3, SELABEL_CTX_FILE is 0.
            options = (ctypes.c_void_p * 2)(3, ctypes.cast(ctypes.c_char_p(str(joined).encode()), ctypes.c_void_p))
            self._handle = ctypes.c_void_p(self._library.selabel_open(0, options, 1))
        self.error = bad[0] if bad else None if self._handle.value else "libselinux cannot read it"

    @staticmethod
    def rows(path):
        """(pattern, type) of each row; the whole line and None for one that has no context."""
        for line in path.read_text().splitlines():
            words = line.split("#", 1)[0].split()
            if words:
                context = _CONTEXT.match(words[-1])
                yield (words[0], context.group(1)) if context or words[-1] == "<<none>>" else (line, None)

    def label(self, path, kind):
        """The type of `path`; None without a row for it."""
        context = ctypes.c_char_p()
        if self._library.selabel_lookup_raw(self._handle, ctypes.byref(context), path.encode(), _KINDS[kind]) != 0:
            return None
        return _CONTEXT.match(context.value.decode()).group(1)


class GenfsContexts:
    """genfscon rows: (file system, path) -> type; a row holds for what lies below it, too."""

    def __init__(self, paths):
        self.rows = {}
        for path in paths:
            for system, place, label in re.findall(r"^genfscon (\S+) (\S+)\s+u:object_r:(\w+):s0", path.read_text(), re.M):
                self.rows[system, place] = label

    def label(self, system, path):
        """The type of a file; the kernel takes the longest row that its path begins with."""
        best = max((place for s, place in self.rows if s == system and path.startswith(place)), key=len, default=None)
        return self.rows.get((system, best))
