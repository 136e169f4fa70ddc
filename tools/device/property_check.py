"""Finds every property that the daemon's sources read and set, and checks that property_contexts labels
each so that the policy lets the daemon do it, on user builds too."""

import re

from kit import KIT, ROOT, daemon_sources, rows, without_comments

SETTERS = ("property_set",)
GETTERS = ("property_get", "get_int_prop", "get_string_prop", "is_prop_on")
EXACT_TYPES = {"bool", "int", "uint", "double", "size", "string", "enum"}

# Read all the same: docs/integration.md says what the platform has against it.
REFUSED = ()

_STRING = r'"(?:\\.|[^"\\])*"'
_CONSTANT = re.compile(r"constexpr\s+(?:char\s+(\w+)\[\]|const\s+char\s*\*\s*(\w+))\s*=\s*(" + _STRING + ")")
_PROPERTY = re.compile(r"(?:ro|persist|sys|vendor|gsm|log|vold)\.[A-Za-z0-9_.]*[A-Za-z0-9_]")


class Sources:
    """What the sources say about properties."""

    def __init__(self, root=ROOT):
        self.set, self.read, self.problems = {}, {}, []  # name -> where it is first seen
        texts = {path.relative_to(root): without_comments(path.read_text()) for path in daemon_sources(root)}
        shared, local = {}, {}
        for path, text in texts.items():
            found = {m.group(1) or m.group(2): m.group(3)[1:-1] for m in _CONSTANT.finditer(text)}
            local[path] = found
            if path.suffix == ".h":
                shared.update(found)
        for path, text in texts.items():
            self._scan(path, text, {**shared, **local[path]})

    def _scan(self, path, text, constants):
        for match in re.finditer(rf"\b({'|'.join(SETTERS + GETTERS)})\s*\(\s*([^,;]+?)\s*,", text):
            function, argument = match.groups()
            line = text.count("\n", 0, match.start()) + 1
            where = f"{path}:{line}"
            names = self._names(argument, text, constants)
            if function in SETTERS:
                if names is None:
                    self.problems.append(f"{where}: cannot tell which property {argument} is")
                for name in names or ():
                    self.set.setdefault(name, where)
            for name in names or ():
                if function in GETTERS:
                    self.read.setdefault(name, where)
        # Tables of names, names that are handed on: whatever looks like a property is read somewhere.
        for literal in re.findall(_STRING, text):
            if _PROPERTY.fullmatch(literal[1:-1]):
                self.read.setdefault(literal[1:-1], str(path))

    @staticmethod
    def _names(argument, text, constants):
        """The names that an argument can stand for; None when that cannot be told."""
        if argument.startswith('"'):
            return [argument[1:-1]]
        if argument in constants:
            return [constants[argument]]
        chosen = re.search(rf"\b{re.escape(argument)}\s*=\s*([^;]+);", text)
        if chosen:
            expression = re.sub(r"\w+\s*\(\s*\)", "", chosen.group(1))  # a condition's call
            words = re.findall(rf"{_STRING}|\bk\w+", expression)
            names = [constants.get(w, w[1:-1] if w.startswith('"') else None) for w in words]
            if names and None not in names:
                return names
        # A declaration of one of the functions, or the parameter of a helper: its callers are seen.
        return [] if re.match(r"const char\s*\*", argument) or _is_parameter(argument, text) else None


def _is_parameter(name, text):
    # Only of functions that get: who sets what was handed in must name it.
    return re.search(rf"\(\s*const char\s*\*\s*{re.escape(name)}\s*[,)]", text) is not None \
        and re.search(rf"property_set\s*\(\s*{re.escape(name)}\b", text) is None


class Contexts:
    """property_contexts files: which type a name has."""

    def __init__(self):
        self.exact, self.prefix, self.problems = {}, {}, []

    def add(self, path):
        for number, words in rows(path):
            where = f"{path.name}:{number}"
            context = re.fullmatch(r"u:object_r:(\w+):s0", words[1]) if len(words) > 1 else None
            if context is None:
                self.problems.append(f"{where}: not a name and a context")
                continue
            kind = words[2] if len(words) > 2 else "prefix"
            if kind not in ("exact", "prefix") or (kind == "exact" and words[3:4] and
                                                   words[3] not in EXACT_TYPES):
                self.problems.append(f"{where}: {' '.join(words[2:])}")
            name = "" if words[0] == "*" else words[0]
            table = self.exact if kind == "exact" else self.prefix
            if name in table:
                self.problems.append(f"{where}: {words[0]} has a row already")
            table[name] = context.group(1)

    def type_of(self, name):
        if name in self.exact:
            return self.exact[name]
        best = max((p for p in self.prefix if name.startswith(p)), key=len, default=None)
        return self.prefix.get(best)


def _problems_with(policy, sources, contexts):
    types = set(contexts.exact.values()) | set(contexts.prefix.values())
    yield from (f"there is no type {t}" for t in sorted(types) if not policy.has(t, "property_type"))
    for names, klass, permission in ((sources.set, "property_service", "set"), (sources.read, "file", "read")):
        for name, where in sorted(names.items()):
            label = contexts.type_of(name)
            if not policy.allows("harrowmossd", label, klass, permission) and name not in REFUSED:
                yield f"{where}: {name} ({label}) cannot be {permission}"


def check(platform, policies, kit=KIT, root=ROOT):
    """Problems: what cannot be set or read, and rows that are broken. Without the platform's files
    (`policies` is empty) only the rows' form."""
    sources, contexts = Sources(root), Contexts()
    if platform:
        contexts.add(platform.sepolicy / "private/property_contexts")
    contexts.add(kit / "sepolicy/private/property_contexts")
    problems = sources.problems + contexts.problems
    if len(sources.set) < 10:
        problems.append(f"only {len(sources.set)} properties found that are set: the search is broken")
    for policy in policies:
        if policy.errors:
            problems.append(f"{policy.name}: the policy does not compile")
            continue
        policy.open()
        problems += [f"{policy.name}: {problem}" for problem in _problems_with(policy, sources, contexts)]
    return problems
