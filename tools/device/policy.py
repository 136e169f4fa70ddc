"""Compiles the kit's SELinux policy against the small base policy and answers what it allows."""

import collections
import pathlib
import re
import tempfile

from kit import BASE_POLICY, KIT, run

POLICY_VERSION = 30  # what Android 13 kernels load


class Policy:
    """A compiled policy, or the errors that kept it from being one. Its file lives as long as the
    `with` block."""

    def __init__(self, variant, kit=KIT, base=BASE_POLICY):
        self.errors = []
        self._rules = collections.defaultdict(set)  # (source, target, class) -> permissions
        self._members = {}  # attribute -> types
        self._types = set()
        self._directory = tempfile.TemporaryDirectory(prefix="policy")
        self.binary = pathlib.Path(self._directory.name) / "policy"
        expanded = self._expand(variant, kit, base)
        if not self.errors and self._compile(expanded):
            self._read_cil()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._directory.cleanup()

    def allows(self, source, target, klass, permission):
        return permission in self._rules[source, target, klass]

    def has_type(self, name):
        return name in self._types

    def _expand(self, variant, kit, base):
        sepolicy = kit / "sepolicy"
        parts = [base / "macros.m4", base / "begin.conf", base / "types.te", base / "neverallow.te"]
        # Declarations before their use, as in a tree: all of public before all of private.
        for folder in ("public", "private"):
            parts += sorted((sepolicy / folder).glob("*.te"))
        for folder in ("private", "vendor"):
            parts += sorted((kit / "examples/sepolicy" / folder).glob("*.te"))
        parts += [base / "end.conf", sepolicy / "private" / "genfs_contexts"]
        result = run(["m4", "--fatal-warnings", "-s", f"-Dtarget_build_variant={variant}", *parts])
        if result.returncode != 0:
            self.errors.append(result.stderr.strip())
        left = re.search(r"^.*(userdebug_or_eng|full_treble_only|[gs]et_prop)\(.*$", result.stdout, re.M)
        if left:
            self.errors.append(f"a macro was not expanded: {left.group().strip()}")
        return result.stdout

    def _compile(self, text):
        conf = self.binary.with_name("policy.conf")
        conf.write_text(text)
        result = run(["checkpolicy", "-M", "-c", POLICY_VERSION, "-o", self.binary, conf])
        if result.returncode != 0:
            # Messages name file and line by the marks that m4 leaves.
            lines = [line.strip() for line in (result.stderr + result.stdout).splitlines()
                     if re.search(r"ERROR|neverallow|unknown|duplicate", line)]
            self.errors += lines or [result.stderr.strip() or "checkpolicy failed"]
        return result.returncode == 0

    def _read_cil(self):
        cil = self.binary.with_name("policy.cil")
        run(["checkpolicy", "-b", "-M", "-C", "-o", cil, self.binary])
        statements = _parse_cil(cil.read_text())
        self._types = {s[1] for s in statements if s[0] == "type"}
        for statement in statements:
            if statement[0] == "typeattributeset":
                self._members[statement[1]] = set(_flatten(statement[2]))
        for statement in statements:
            if statement[0] != "allow":
                continue
            _, source, target, (klass, permissions) = statement
            for one in self._members.get(source, {source}):
                for other in {one} if target == "self" else self._members.get(target, {target}):
                    self._rules[one, other, klass].update(permissions)


def _flatten(tree):
    for node in tree:
        if isinstance(node, list):
            yield from _flatten(node)
        else:
            yield node


def _parse_cil(text):
    stack = [[]]
    for token in re.findall(r'"[^"]*"|[()]|[^\s()]+', re.sub(r";[^\n]*", "", text)):
        if token == "(":
            stack.append([])
        elif token == ")":
            done = stack.pop()
            stack[-1].append(done)
        else:
            stack[-1].append(token)
    return stack[0]
