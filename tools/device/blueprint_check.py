"""Reads the Android.bp files and checks that what they name exists and that no source is left out."""

import re

from kit import DAEMON_FOLDERS, ROOT

# Modules of the platform that the kit may link.
PLATFORM_LIBRARIES = {"libbinder", "libcutils", "liblog"}
_TOKEN = re.compile(r'\s*(?://[^\n]*|/\*.*?\*/)|\s+|("(?:\\.|[^"\\])*")|([A-Za-z_]\w*)|(-?\d+)|(.)', re.S)


class Blueprint:
    """The modules of one file: [(kind, {property: value}), ...]."""

    def __init__(self, path):
        self.path = path
        self.modules = []
        self._tokens = [m.group().strip() for m in _TOKEN.finditer(path.read_text())
                        if any(m.groups())] + [None]
        self._at = 0
        while self._tokens[self._at] is not None:
            kind = self._take()
            if not kind.isidentifier():
                raise ValueError(f"{path}: {kind} where a module begins")
            self.modules.append((kind, self._map("{")))

    def _take(self, wanted=None):
        token = self._tokens[self._at]
        if token is None or (wanted is not None and token != wanted):
            raise ValueError(f"{self.path}: {wanted or 'a word'} expected, found {token}")
        self._at += 1
        return token

    def _map(self, opening):
        self._take(opening)
        result = {}
        while self._tokens[self._at] != "}":
            key = self._take()
            self._take(":")
            if key in result:
                raise ValueError(f"{self.path}: {key} stands twice in a module")
            result[key] = self._value()
            if self._tokens[self._at] != "}":
                self._take(",")
        self._take("}")
        return result

    def _value(self):
        token = self._tokens[self._at]
        if token == "{":
            return self._map("{")
        if token != "[":
            token = self._take()
            return {"true": True, "false": False}.get(token, token.strip('"'))
        self._take("[")
        items = []
        while self._tokens[self._at] != "]":
            items.append(self._value())
            if self._tokens[self._at] != "]":
                self._take(",")
        self._take("]")
        return items


def _files(folder, patterns):
    return {path for pattern in patterns for path in folder.glob(pattern)}


def load(root=ROOT):
    """The modules of Android.bp and device/**/Android.bp by name, each (kind, {property: value}, folder),
    and what is wrong with the files themselves."""
    paths = [root / "Android.bp", *sorted((root / "device").rglob("Android.bp"))]
    try:
        blueprints = [Blueprint(path) for path in paths]
    except (ValueError, OSError) as error:
        return {}, [str(error)]
    modules, problems = {}, []
    for blueprint in blueprints:
        for kind, properties in blueprint.modules:
            name = properties.get("name")
            if name in modules:
                problems.append(f"{name}: there are two of it")
            if name is not None:
                modules[name] = (kind, properties, blueprint.path.parent)
    return modules, problems


def check(root=ROOT):
    """Problems of Android.bp and device/**/Android.bp."""
    modules, problems = load(root)
    for name, module in modules.items():
        problems += [f"{name}: {problem}" for problem in _module_problems(module, modules)]
    return problems + list(_left_out(modules, root))


def with_defaults(module, modules):
    """A module with what its defaults add."""
    kind, properties, folder = module
    merged = dict(properties)
    for name in properties.get("defaults", []):
        for key, value in modules.get(name, ("", {}, None))[1].items():
            if key != "name":
                merged[key] = merged.get(key, []) + value if isinstance(value, list) else \
                    merged.get(key, value)
    return kind, merged, folder


def sources_of(module, modules):
    """The files that a module or a filegroup compiles; those of a filegroup that it names in its place."""
    _, properties, folder = module
    found = _files(folder, [item for item in properties.get("srcs", []) if not item.startswith(":")])
    for item in properties.get("srcs", []):
        if item.startswith(":"):
            found |= set(sources_of(modules[item[1:]], modules))
    return sorted(found - _files(folder, properties.get("exclude_srcs", [])))


def _module_problems(module, modules):
    kind, properties, folder = with_defaults(module, modules)
    for key in ("srcs", "src", "exclude_srcs", "init_rc", "corpus", "license_text"):
        value = properties.get(key, [])
        for item in value if isinstance(value, list) else [value]:
            if item.startswith(":"):
                if item[1:] not in modules:
                    yield f"{key}: there is no module {item}"
            elif ".." in item.split("/"):
                yield f"{key}: {item} leaves the folder"
            elif not _files(folder, [item]):
                yield f"{key}: {item} names no file"
    for key in ("defaults", "static_libs", "shared_libs", "header_libs", "required"):
        for item in properties.get(key, []):
            if item not in modules and item not in PLATFORM_LIBRARIES:
                yield f"{key}: there is no module {item}"
    if kind in ("cc_binary", "cc_library_static") and properties.get("system_ext_specific") is not True:
        yield "not system_ext_specific"
    flags = properties.get("cflags", [])
    if kind.startswith("cc_") and kind not in ("cc_defaults", "cc_library_headers"):
        for flag in ("-Werror", "-D_FORTIFY_SOURCE=2"):
            if flag not in flags:
                yield f"without {flag}"


def _left_out(modules, root):
    """Sources of the daemon and the client that no module compiles, and what must not be in one."""
    platform = re.compile(r"\b(__ANDROID(_API)?__|__BIONIC__|__GLIBC__)\b")
    compiled = set()
    for kind, properties, folder in modules.values():
        if kind == "filegroup":
            compiled |= set(sources_of((kind, properties, folder), modules))
    for folder in (*DAEMON_FOLDERS, "client"):
        for path in sorted((root / folder).rglob("*.cpp")):
            if path not in compiled:
                yield f"{path.relative_to(root)}: no module compiles it"
            if platform.search(path.read_text()):
                yield f"{path.relative_to(root)}: asks which platform it is built for"
    for path in sorted(compiled):
        if path.relative_to(root).parts[0] in ("platform", "phone"):
            yield f"{path.relative_to(root)}: is for plain Linux"
