"""Compiles the kit's policy for user and userdebug builds and asks it what it must and must not allow."""

import pathlib
import re
import tempfile

from kit import KIT, ROOT, VARIANTS, daemon_sources, run, without_comments
from policy import Policy
from rc_check import RcFile

# (source, target, class, permission), and in which builds.
BOTH, DEBUG, NEVER = VARIANTS, ("userdebug",), ()
PROMISES = (
    (("harrowmoss_app", "harrowmossd", "unix_stream_socket", "connectto"), BOTH),
    (("shell", "harrowmossd", "unix_stream_socket", "connectto"), DEBUG),
    (("system_app", "harrowmossd", "unix_stream_socket", "connectto"), NEVER),
    (("harrowmossd", "shell_exec", "file", "execute_no_trans"), BOTH),
    (("harrowmossd", "logdr_socket", "sock_file", "write"), BOTH),
    (("harrowmossd", "input_device", "chr_file", "read"), BOTH),
    (("harrowmossd", "harrowmossd_data_file", "file", "create"), BOTH),
    (("harrowmossd", "media_rw_data_file", "dir", "create"), BOTH),
    (("harrowmossd", "proc_sysrq", "file", "write"), DEBUG),
    (("harrowmossd", "harrowmossd_debugfs", "file", "read"), DEBUG),
    (("harrowmossd", "harrowmossd_vendor_data_file", "file", "create"), DEBUG),
    (("harrowmossd", "harrowmossd_persist_file", "file", "create"), DEBUG),
    (("harrowmossd", "harrowmossd", "capability", "sys_ptrace"), DEBUG),
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


def _label(contexts, path, kind):
    result = run(["selabel_lookup", "-b", "file", "-r", "-f", contexts, "-k", path, "-t", kind])
    found = re.search(r"u:object_r:(\w+):s0", result.stdout)
    return found.group(1) if found else None


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


def _file_contexts(kit, policy, root):
    with tempfile.TemporaryDirectory() as scratch:
        joined = pathlib.Path(scratch) / "file_contexts"
        joined.write_text("".join(path.read_text() for path in sorted(kit.rglob("file_contexts"))))
        result = run(["sefcontext_compile", "-p", policy.binary, "-o", joined.with_suffix(".bin"), joined])
        if result.returncode != 0:
            return [f"file_contexts: {result.stderr.strip()}"]
        problems = []
        for path, kind, wanted in sorted(set(_expected_labels(kit, root)), key=str):
            found = _label(joined, path, kind)
            if wanted is None and (found is None or not found.endswith("_exec")):
                problems.append(f"file_contexts: the program {path} is {found or 'not labelled'}")
            elif wanted is not None and found != wanted:
                problems.append(f"file_contexts: {path} is {found or 'not labelled'}, not {wanted}")
        problems += [f"file_contexts: {path} is not ours to label" for path in NOT_OURS
                     if _label(joined, path, "dir") is not None]
    return problems


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
        for key in ("domain", "type"):
            if not policy.has_type(pairs.get(key, "")):
                problems.append(f"{where}: there is no {key} {pairs.get(key, '')}")
        # The platform: nobody runs as system who is not signed with the platform's key; and a row
        # without a name would take every app of that user.
        if pairs.get("user") == "system" and pairs.get("seinfo") != "platform":
            problems.append(f"{where}: user=system without seinfo=platform")
        if "name" not in pairs:
            problems.append(f"{where}: no name: it would hold for every app")
    return problems


def _promises(policy, variant):
    for rule, builds in PROMISES:
        if policy.allows(*rule) != (variant in builds):
            verb = "allows" if policy.allows(*rule) else "does not allow"
            yield f"{variant}: the policy {verb} {' '.join(rule)}"


def check(kit=KIT, root=ROOT):
    """Problems of the policy and its contexts."""
    problems = []
    for variant in VARIANTS:
        with Policy(variant, kit) as policy:
            problems += [f"{variant}: {error}" for error in policy.errors]
            if policy.errors:
                continue
            problems += _promises(policy, variant)
            if variant == "user":  # the contexts are the same for all builds, and the types are too
                problems += _file_contexts(kit, policy, root)
                problems += _seapp_contexts(kit / "sepolicy/private/seapp_contexts", policy)
    return problems
