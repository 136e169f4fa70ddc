"""Asks a built policy for what the daemon was seen to do in a session: the table accesses.txt."""

import pathlib

from contexts import FileContexts, GenfsContexts
from kit import rows

TABLE = pathlib.Path(__file__).with_name("accesses.txt")

# Access -> (class, permissions) for the object itself, then permissions of the directory that it lies in.
ACCESSES = {
    "stat":    ((None, ("getattr",)), ()),
    "read":    ((None, ("open", "read", "getattr")), ()),
    "write":   (("file", ("open", "write")), ()),
    "change":  (("file", ("open", "read", "write")), ()),
    "create":  (("file", ("create", "open", "write")), ("write", "add_name")),
    "setattr": ((None, ("getattr", "setattr")), ()),
    "rename":  ((None, ("rename",)), ("write", "add_name", "remove_name")),
    "unlink":  (("file", ("unlink",)), ("write", "remove_name")),
    "link":    (("file", ("link",)), ("write", "add_name")),
    "lock":    ((None, ("lock",)), ()),
    "list":    (("dir", ("open", "read", "getattr")), ()),
    "mkdir":   (("dir", ("create",)), ("write", "add_name")),
    "rmdir":   (("dir", ("rmdir",)), ("write", "remove_name")),
    "run":     (("file", ("open", "read", "getattr", "map", "execute", "execute_no_trans")), ()),
    "connect": (("sock_file", ("write",)), ()),
    "statfs":  (("filesystem", ("getattr",)), ()),
}
DEVICES = ("/dev/input/event", "/dev/binder")  # character devices
# Where a path's file system has labels of its own, by genfs_contexts; the others' are by file_contexts.
MOUNTS = {"/proc": "proc", "/sys": "sysfs", "/sys/kernel/debug": "debugfs", "/d": "debugfs", "/sdcard": "fuse",
          "/sys/fs/pstore": "pstore"}
LINKS = {"/persist": "/mnt/vendor/persist", "/sys/class/light/light": "/sys/devices/virtual/light/light"}
# What the vendor's policy labels, by the platform's own type for it.
VENDORS = {"/sys/class/power_supply/battery": "sysfs_batteryinfo"}
# /proc has directories of processes: those of the daemon's domain, and one that stands for all others.
PROCESSES = {"/proc/self": "harrowmossd", "/proc/other": "system_server"}
DOMAINS = {"app": "harrowmoss_app"}  # every other process is the daemon's
# What a mark in the table says: where the policy refuses the access. "no" is for rows without a mark.
REFUSED = {
    "no": lambda build: False,
    "refused": lambda build: True,
    "user": lambda build: build[0] == "user",
    "debugfs": lambda build: build[0] == "user" or build[1],
}


class Labels:
    """The type of every path on a phone with the platform's contexts and the kit's."""

    def __init__(self, platform, kit):
        folder = platform.sepolicy
        self._files = FileContexts([folder / "private/file_contexts", folder / "vendor/file_contexts",
                                    *sorted(kit.rglob("file_contexts"))])
        self._genfs = GenfsContexts([folder / "private/genfs_contexts", kit / "sepolicy/private/genfs_contexts"])

    def of(self, path, kind):
        for link, target in LINKS.items():
            if (path + "/").startswith(link + "/"):
                path = target + path[len(link):]
        for place, label in {**PROCESSES, **VENDORS}.items():
            if (path + "/").startswith(place + "/"):
                return label
        mount = max((m for m in MOUNTS if (path + "/").startswith(m + "/")), key=len, default=None)
        if mount:
            return self._genfs.label(MOUNTS[mount], path[len(mount):] or "/")
        return "rootfs" if path == "/" else self._files.label(path, kind)


def _asked(name, access, labels):
    """(type, class, permission) of everything that an access takes, the way to it included."""
    (klass, permissions), above = ACCESSES[access]
    path = name.rstrip("/") or "/"
    klass = klass or ("dir" if name.endswith("/") or name in PROCESSES else "file")
    if klass == "file" and path.startswith(DEVICES):
        klass = "chr_file"
    target = labels.of(path, "dir" if klass == "filesystem" else klass)
    if klass == "filesystem" and not any((path + "/").startswith(place + "/") for place in MOUNTS):
        target = "labeledfs"  # of flash: the files have the labels, the file system has one of its own
    for parent in pathlib.PurePosixPath(path).parents:
        yield labels.of(str(parent), "dir"), "dir", "search"
    yield from ((target, klass, permission) for permission in permissions)
    yield from ((labels.of(str(pathlib.PurePosixPath(path).parent), "dir"), "dir", p) for p in above)


def check(platform, policy, kit, table=TABLE):
    """Problems: rows that the policy refuses without a mark, and marks that do not hold."""
    labels, problems, count = Labels(platform, kit), [], 0
    for number, words in rows(table):
        name, access, process = words[:3]
        mark, reason = (words[3], words[4:]) if len(words) > 3 else ("no", True)
        domain = DOMAINS.get(process, "harrowmossd")
        where = f"accesses.txt:{number}: {process} {access} {name}"
        count += 1
        if access not in ACCESSES and not access.startswith("self:") or mark not in REFUSED or not reason:
            problems.append(f"{where}: not a row")
            continue
        if access.startswith("self:"):  # a socket or capability of the process itself: class:permission
            asked = [(domain, access[len("self:"):], name)]
        else:
            asked = list(_asked(name, access, labels))
        missing = [f"{target} {klass} {permission}" for target, klass, permission in asked
                   if target is None or not policy.allows(domain, target, klass, permission)]
        expected = REFUSED[mark](policy.build)
        if missing and not expected:
            problems.append(f"{where}: refused: {', '.join(dict.fromkeys(missing))}")
        elif not missing and expected:
            problems.append(f"{where}: marked as refused, and allowed")
    return problems + (["accesses.txt: few rows: is it the whole table?"] if count < 100 else [])
