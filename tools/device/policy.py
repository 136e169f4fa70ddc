"""Builds the platform's policy with the kit's in it, as a device build does, and answers what it allows."""

import concurrent.futures
import ctypes
import hashlib
import pathlib
import re

from cil import Cil
from kit import KIT, VARIANTS, run

POLICY_VERSION = 30  # what Android 13 builds
# What a file of each folder is called, in the order in which they are joined.
FILES = """security_classes initial_sids access_vectors global_macros neverallow_macros mls_macros mls_decl
    mls policy_capabilities te_macros attributes ioctl_defines ioctl_macros *.te roles_decl roles users
    initial_sid_contexts fs_use genfs_contexts port_contexts""".split()
SWITCHES = """mls_num_sens=1 mls_num_cats=1024 target_arch=arm64 target_full_treble=true
    target_compatible_property=true target_treble_sysprop_neverallow=true target_enforce_sysprop_owner=true
    target_exclude_build_test=false target_recovery=false target_with_asan=false target_with_dexpreopt=true
    target_with_native_coverage=false target_requires_insecure_execmem_for_swiftshader=false""".split()
PLATFORM = [pathlib.Path(name) for name in ("public", "private", "vendor")]


def _whole(kit):
    """The folders of a whole build."""
    return [*PLATFORM, kit / "sepolicy/public", kit / "sepolicy/private", kit / "examples/sepolicy/private",
            kit / "examples/sepolicy/vendor"]


def _partial(kit):
    """What is compiled apart: the system's side without the vendor's, and the vendor's with nothing of the
    system's but what is public."""
    yield [*PLATFORM[:2], kit / "sepolicy/public", kit / "sepolicy/private", kit / "examples/sepolicy/private"]
    yield [pathlib.Path("reqd_mask"), PLATFORM[0], kit / "sepolicy/public", PLATFORM[2],
           kit / "examples/sepolicy/vendor"]


def _real(path):
    """A link as git keeps it on a file system without links: a file that holds the other's name."""
    text = path.read_text()
    return path.parent / text if re.fullmatch(r"\.\./[\w/]+", text) else path


# A build: its variant, and whether debugfs is shut, as on every phone launched with Android 12 or later.
BUILDS = [(variant, restricted) for variant in VARIANTS for restricted in (True, False)]


class Policy:
    """One build's policy: `errors` that keep it from being one, or a policy that can be asked."""

    def __init__(self, platform, build, kit, scratch):
        self.name = f"{build[0]}, debugfs {'restricted' if build[1] else 'open'}"
        self.binary = scratch / f"{build[0]}_{build[1]}"
        self.build = build
        self._platform, self._kit, self._scratch = platform, kit, scratch
        self.cil = Cil("")
        self.errors = [error for parts in _partial(kit) for error in self._compile(parts)[1]]
        text, errors = self._compile(_whole(kit))
        self.errors += errors
        if not self.errors:
            self.cil = Cil(text)
            self.errors = self._violations(text) + self._link(text)

    def open(self):
        """Loads the policy for allows(); one at a time in a process."""
        _Sepol.load(self.binary)

    @staticmethod
    def allows(source, target, klass, permission):
        """What the kernel would say to a process of the type `source`, for an object or process of the type
        `target`; of an ioctl the command is not looked at."""
        return _Sepol.allows(source, target, klass, permission)

    def has(self, name, attribute):
        """Whether the type `name` has `attribute`."""
        return name in self.cil.types and name in self.cil.members(attribute)

    def _compile(self, folders):
        """CIL of the platform's folders that are named and of the kit's; with what is wrong."""
        folders = [f if f.is_absolute() else self._platform.sepolicy / f for f in folders]
        parts = [path for name in FILES for folder in folders for path in sorted(map(_real, folder.glob(name)))]
        variant, restricted = self.build
        switches = [f"-D{switch}" for switch in SWITCHES] + [
            f"-Dtarget_build_variant={variant}",
            f"-Dtarget_enforce_debugfs_restriction={str(restricted).lower()}"]
        expanded = run(["m4", "--fatal-warnings", "-s", *switches, *parts])
        conf, cil = self.binary.with_suffix(".conf"), self.binary.with_suffix(".cil")
        conf.write_text(expanded.stdout)
        result = run(["checkpolicy", "-C", "-M", "-c", POLICY_VERSION, "-o", cil, conf])
        if expanded.returncode != 0 or result.returncode != 0:
            lines = re.findall(r"^.*ERROR.*$", result.stderr + result.stdout, re.M)
            return "", [expanded.stderr.strip()] if expanded.stderr else lines or [result.stderr.strip()]
        return cil.read_text(), []

    def _violations(self, text):
        """Rules that a neverallow forbids. All of them against all takes half a minute: what the platform
        does alone is checked once, and with the kit only what is new about it."""
        base_text, errors = self._compile(PLATFORM)
        errors = errors or self._checked(base_text)
        if errors:
            return [f"the platform alone: {error}" for error in errors]
        return [error for part in Cil(text).to_check(Cil(base_text), self._kit) for error in self._checked(part)]

    def _checked(self, text):
        """secilc's word on all neverallows of a policy. That there are none to tell is remembered."""
        passed = self._scratch / (hashlib.sha256(text.encode()).hexdigest() + ".passed")
        if passed.exists():
            return []
        source = passed.with_suffix(".cil")
        source.write_text(text)
        result = run(["secilc", "-m", "-M", "true", "-G", "-c", POLICY_VERSION, source, "-o", "/dev/null",
                      "-f", "/dev/null"])
        source.unlink()
        if result.returncode == 0:
            passed.touch()
            return []
        return [f"{where}: {' '.join(rule.split())} is violated by {' '.join(allow.split())}"
                for where, rule, allow in re.findall(
                    r"check failed at \S+(?: from (\S+))?\n\s*(\(.*\))\n(?:\s*<root>\n\s*allow at \S+\n\s*(\(.*\)))?",
                    result.stderr)] or [result.stderr.strip()]

    def _link(self, text):
        source = self.binary.with_suffix(".cil")
        source.write_text(text)
        result = run(["secilc", "-N", "-m", "-M", "true", "-G", "-c", POLICY_VERSION, source, "-o", self.binary,
                      "-f", "/dev/null"])
        return [] if result.returncode == 0 else [result.stderr.strip()]


class _Sepol:
    """libsepol's answers, the reference for what a kernel decides, its constraints included."""

    _library = None

    @classmethod
    def load(cls, binary):
        if cls._library is None:
            cls._library = ctypes.CDLL("libsepol.so.2")
            cls._library.sepol_debug(0)
        libc = ctypes.CDLL(None)
        libc.fopen.restype = ctypes.c_void_p
        file = ctypes.c_void_p(libc.fopen(str(binary).encode(), b"r"))
        if cls._library.sepol_set_policydb_from_file(file) != 0:
            raise RuntimeError(f"libsepol does not load {binary}")
        libc.fclose(file)

    @classmethod
    def allows(cls, source, target, klass, permission):
        sids = [ctypes.c_uint32(), ctypes.c_uint32()]
        for sid, context in zip(sids, (f"u:r:{source}:s0", _context(target, klass))):
            if cls._library.sepol_context_to_sid(context.encode(), len(context) + 1, ctypes.byref(sid)) != 0:
                return False
        number, vector, decision = ctypes.c_uint16(), ctypes.c_uint32(), (ctypes.c_uint32 * 5)()
        if cls._library.sepol_string_to_security_class(klass.encode(), ctypes.byref(number)) != 0 or \
                cls._library.sepol_string_to_av_perm(number, permission.encode(), ctypes.byref(vector)) != 0:
            raise ValueError(f"there is no {klass} {permission}")
        cls._library.sepol_compute_av(sids[0], sids[1], number, vector, ctypes.byref(decision))
        return decision[0] & vector.value == vector.value


def _context(name, klass):
    role = "r" if klass.endswith("_socket") or klass in ("process", "binder", "fd", "capability", "capability2") \
        else "object_r"
    return f"u:{role}:{name}:s0"



def build(platform, scratch, kit=KIT):
    """The policies of all BUILDS, made side by side in the folder `scratch`."""
    scratch.mkdir(parents=True, exist_ok=True)
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        return list(pool.map(lambda one: Policy(platform, one, kit, scratch), BUILDS))
