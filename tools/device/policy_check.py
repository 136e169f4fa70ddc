"""Asks the platform's policy with the kit's in it what it must and must not allow, and checks the contexts."""

import re

import accesses
from contexts import FileContexts, GenfsContexts
from kit import KIT, ROOT, daemon_sources, without_comments
from policy import BUILDS
from rc_check import RcFile

# (source, target, class, permission), and in which builds.
BOTH, NEVER = BUILDS, ()
DEBUG = [build for build in BUILDS if build[0] == "userdebug"]
DEBUG_OPEN = [build for build in DEBUG if not build[1]]
PROMISES = (
    (("harrowmoss_app", "harrowmossd", "unix_stream_socket", "connectto"), BOTH),
    (("shell", "harrowmossd", "unix_stream_socket", "connectto"), DEBUG),
    (("system_app", "harrowmossd", "unix_stream_socket", "connectto"), NEVER),
    (("harrowmossd", "shell_exec", "file", "execute_no_trans"), BOTH),
    (("harrowmossd", "logdr_socket", "sock_file", "write"), BOTH),
    (("harrowmossd", "input_device", "chr_file", "write"), BOTH),
    (("harrowmossd", "fuse", "filesystem", "getattr"), BOTH),
    (("harrowmoss_app", "fuse", "file", "create"), BOTH),
    (("harrowmossd", "harrowmossd", "packet_socket", "ioctl"), BOTH),
    (("harrowmossd", "harrowmossd", "netlink_route_socket", "nlmsg_getneigh"), BOTH),
    (("harrowmossd", "tcpdump_exec", "file", "execute_no_trans"), DEBUG),
    (("harrowmossd", "harrowmossd_data_file", "file", "create"), BOTH),
    (("harrowmossd", "media_rw_data_file", "dir", "create"), BOTH),
    (("harrowmossd", "proc_sysrq", "file", "write"), DEBUG),
    (("harrowmossd", "harrowmossd_debugfs", "file", "read"), DEBUG_OPEN),
    (("harrowmossd", "harrowmossd_vendor_data_file", "file", "create"), DEBUG),
    (("harrowmossd", "harrowmossd_persist_file", "file", "create"), DEBUG),
    (("harrowmossd", "harrowmossd", "capability", "sys_ptrace"), NEVER),
    (("harrowmossd", "harrowmossd", "capability", "dac_override"), NEVER),
    (("harrowmossd", "harrowmossd_data_file", "file", "execute"), NEVER),
    (("vendor_init", "harrowmossd_state_prop", "property_service", "set"), BOTH),
    (("vendor_init", "harrowmossd_config_prop", "property_service", "set"), NEVER),
    (("shell", "harrowmossd_config_prop", "property_service", "set"), DEBUG),
    (("untrusted_app", "harrowmossd_config_prop", "property_service", "set"), NEVER),
)

# Paths whose label is not ours to give: neighbours of ours, and the store that MediaProvider serves.
NOT_OURS = ("/data/misc/zelkalogger", "/data/misc", "/data/media/0/zelkalog", "/dev/socket/harrowmossd2",
            "/system_ext/bin/harrowmossctl", "/data/vendor/other", "/mnt/vendor/persist/other")
OURS = (
    ("/system_ext/bin/harrowmossd", "file", "harrowmossd_exec"),
    ("/system/system_ext/bin/harrowmossd", "file", "harrowmossd_exec"),
    ("/dev/socket/harrowmossd", "socket", "harrowmossd_socket"),
    ("/mnt/vendor/persist/harrowmoss/persist.sys.state", "file", "harrowmossd_persist_file"),
)
# Roots of ours: everything that the sources name below them must have their label.
ROOTS = {"/data/misc/zelkalog": "harrowmossd_data_file", "/data/vendor/zelkalog": "harrowmossd_vendor_data_file"}


def _expected_labels(kit, root):
    """(path, kind, type) of everything that must be labelled, as far as rc files and sources name it."""
    yield from OURS
    for source in daemon_sources(root):
        for path in re.findall(r'"(/[^"\s*%]+)', without_comments(source.read_text())):
            for ours, label in ROOTS.items():
                if path.rstrip("/").startswith(ours):
                    yield path.rstrip("/"), "dir", label
    for rc in kit.rglob("*.rc"):
        for service in RcFile(rc).services.values():
            yield service["program"], "file", None  # any program type


# What the platform's own tests want of the types of ours, by where they lie: attributes that they must
# have, and must not have.
RULES = (
    ("/data/", ("data_file_type",), ()), ("/data/misc/", ("core_data_file_type",), ()),
    ("/data/vendor/", (), ("core_data_file_type",)), ("/system_ext/", ("system_file_type",), ("vendor_file_type",)),
    ("/vendor/", ("vendor_file_type",), ("system_file_type",)),
    ("proc ", ("proc_type",), ()), ("sysfs ", ("sysfs_type",), ()), ("debugfs ", ("debugfs_type",), ()),
)


def _file_contexts(kit, root):
    ours = FileContexts(sorted(kit.rglob("file_contexts")))
    if ours.error:
        return [f"file_contexts: {ours.error}"]
    problems = []
    for path, kind, wanted in sorted(set(_expected_labels(kit, root)), key=str):
        found = ours.label(path, kind)
        if wanted is None and (found is None or not found.endswith("_exec")):
            problems.append(f"file_contexts: the program {path} is {found or 'not labelled'}")
        elif wanted is not None and found != wanted:
            problems.append(f"file_contexts: {path} is {found or 'not labelled'}, not {wanted}")
    return problems + [f"file_contexts: {path} is not ours to label" for path in NOT_OURS if ours.label(path, "dir")]


def _labelled_types(kit, policy):
    """Types that rows of ours name: there must be one, with the attributes of its place."""
    rows = [(path, label) for file in sorted(kit.rglob("file_contexts")) for path, label in FileContexts.rows(file)]
    genfs = GenfsContexts([kit / "sepolicy/private/genfs_contexts"])
    rows += [(f"{system} {path}", label) for (system, path), label in genfs.rows.items()]
    for path, label in rows:
        place = path.replace("(system_ext|system/system_ext)", "system_ext")
        if not policy.has(label, "file_type") and not policy.has(label, "fs_type"):
            yield f"contexts: {path}: there is no type {label}"
        for prefix, must, must_not in RULES:
            if place.startswith(prefix):
                yield from (f"contexts: {path}: {label} is no {a}" for a in must if not policy.has(label, a))
                yield from (f"contexts: {path}: {label} is a {a}" for a in must_not if policy.has(label, a))


# Selectors and results of Android 13's seapp_contexts that the kit may use.
SEAPP_KEYS = {"user", "seinfo", "name", "domain", "type", "levelFrom", "isPrivApp", "fromRunAs",
              "minTargetSdkVersion", "isSystemServer", "isEphemeralApp"}


def _seapp_contexts(path, policy):
    problems = []
    for number, line in enumerate(path.read_text().splitlines(), 1):
        row = line.split("#", 1)[0].split()
        if not row:
            continue
        pairs = dict(word.partition("=")[::2] for word in row)
        where = f"seapp_contexts:{number}"
        problems += [f"{where}: unknown selector {key}" for key in pairs if key not in SEAPP_KEYS]
        for key, attribute in (("domain", "appdomain"), ("type", "app_data_file_type")):
            if policy and not policy.has(pairs.get(key, ""), attribute):
                problems.append(f"{where}: there is no {key} {pairs.get(key, '')}")
        # The platform: nobody runs as system who is not signed with the platform's key; and a row
        # without a name would take every app of that user.
        if pairs.get("user") == "system" and pairs.get("seinfo") != "platform":
            problems.append(f"{where}: user=system without seinfo=platform")
        if "name" not in pairs:
            problems.append(f"{where}: no name: it would hold for every app")
    return problems


def _promises(policy):
    for rule, builds in PROMISES:
        if policy.allows(*rule) != (policy.build in builds):
            verb = "allows" if policy.allows(*rule) else "does not allow"
            yield f"the policy {verb} {' '.join(rule)}"


def check(platform, policies, kit=KIT, root=ROOT):
    """Problems of the policy, its contexts, and of the daemon's accesses under it. `policies` is empty
    without the platform's files; then only the contexts are looked at."""
    problems = _file_contexts(kit, root)
    problems += _seapp_contexts(kit / "sepolicy/private/seapp_contexts", policies[0] if policies else None)
    for policy in policies:
        found = policy.errors
        if not found:
            policy.open()
            found = [*_promises(policy), *_labelled_types(kit, policy), *accesses.check(platform, policy, kit)]
        problems += [f"{policy.name}: {problem}" for problem in found]
    return problems
