"""Checks .rc files as Android 13's init reads them, and that the daemon's own says what it must."""

import re

from kit import KIT

DAEMON_RC = "harrowmossd.rc"

# Users and groups of the platform's fixed list that a log service may name.
IDS = set("""
root daemon bin sys system radio bluetooth graphics input audio camera log compass mount wifi adb install
media dhcp sdcard_rw vpn keystore usb drm mdnsr gps media_rw mtp nfc sdcard_r clat loop_radio mediadrm
package_info sdcard_pics sdcard_av sdcard_all logd shared_relro cache diag net_bt_admin net_bt inet net_raw
net_admin net_bw_stats net_bw_acct readproc wakelock uhid readtracefs shell ext_data_rw ext_obb_rw
external_storage context_hub statsd incidentd secure_element everybody misc nobody vendor_rfs
""".split())

# Name -> least and most arguments; None: no bound. At most twelve groups behind the first: the smallest
# bound that any release had.
OPTIONS = {
    "capabilities": (0, None), "class": (1, None), "console": (0, 1), "critical": (0, 2), "disabled": (0, 0),
    "enter_namespace": (2, 2), "file": (2, 2), "group": (1, 13), "interface": (2, 2), "ioprio": (2, 2),
    "keycodes": (1, None), "memcg.limit_in_bytes": (1, 1), "memcg.limit_percent": (1, 1),
    "memcg.limit_property": (1, 1), "memcg.soft_limit_in_bytes": (1, 1), "memcg.swappiness": (1, 1),
    "namespace": (1, 2), "oneshot": (0, 0), "onrestart": (1, None), "oom_score_adjust": (1, 1),
    "override": (0, 0), "priority": (1, 1), "reboot_on_failure": (1, 1), "restart_period": (1, 1),
    "rlimit": (3, 3), "seclabel": (1, 1), "setenv": (2, 2), "shutdown": (1, 1), "sigstop": (0, 0),
    "socket": (3, 6), "stdio_to_kmsg": (0, 0), "task_profiles": (1, None), "timeout_period": (1, 1),
    "updatable": (0, 0), "user": (1, 1), "writepid": (1, None),
}
COMMANDS = {
    "chmod": (2, 2), "chown": (2, 3), "class_reset": (1, 1), "class_restart": (1, 2), "class_start": (1, 1),
    "class_stop": (1, 1), "copy": (2, 2), "copy_per_line": (2, 2), "enable": (1, 1), "exec": (1, None),
    "exec_background": (1, None), "exec_start": (1, 1), "export": (2, 2), "ifup": (1, 1),
    "insmod": (1, None), "interface_restart": (1, 1), "interface_start": (1, 1), "interface_stop": (1, 1),
    "loglevel": (1, 1), "mkdir": (1, 6), "mount": (3, None), "readahead": (1, 2), "restart": (1, 2),
    "restorecon": (1, None), "restorecon_recursive": (1, None), "rm": (1, 1), "rmdir": (1, 1),
    "setprop": (2, 2), "setrlimit": (3, 3), "start": (1, 1), "stop": (1, 1), "symlink": (2, 2),
    "sysclktz": (1, 1), "trigger": (1, 1), "umount": (1, 1), "wait": (1, 2), "wait_for_prop": (2, 2),
    "write": (2, 2),
}
STAGES = {"early-init", "init", "late-init", "early-fs", "fs", "post-fs", "late-fs", "post-fs-data",
          "zygote-start", "early-boot", "boot", "charger", "nonencrypted", "shutdown"}


def words_of(text):
    """(line number, words) of each logical line: blanks separate, "..." keeps them, a backslash at the end
    joins the next line, '#' begins a comment. An open quote gives None for the words."""
    number, lines = 0, text.splitlines()
    while number < len(lines):
        first, line = number + 1, lines[number]
        while line.endswith("\\") and number + 1 < len(lines):
            number += 1
            line = line[:-1] + " " + lines[number]
        number += 1
        found, rest = [], line.strip()
        while rest and not rest.startswith("#"):
            match = re.match(r'((?:"[^"]*"|[^\s"])+)\s*', rest)
            if match is None:
                found = None
                break
            found.append(match.group(1).replace('"', ""))
            rest = rest[match.end():]
        if found is None or found:
            yield first, found


class RcFile:
    """Services and actions of one file, and what is wrong with it."""

    def __init__(self, path):
        self.problems = []
        self.services = {}  # name -> {"program": path, option: [arguments, ...]}
        self.actions = []   # (trigger words, [command words, ...])
        self._section = None
        self._name = path.name
        for number, words in words_of(path.read_text()):
            problem = "a quote is not closed" if words is None else self._take(words)
            if problem:
                self.problems.append(f"{path.name}:{number}: {problem}")

    def _take(self, words):
        if words[0] == "service":
            return self._service(words)
        if words[0] == "on":
            return self._action(words)
        if words[0] == "import":
            return "import: a kit's file stands alone"
        if self._section is None:
            return f"{words[0]} stands in no section"
        kind, section = self._section
        table = OPTIONS if kind == "service" else COMMANDS
        if words[0] not in table:
            return f"unknown {'option' if kind == 'service' else 'command'} {words[0]}"
        least, most = table[words[0]]
        count = len(words) - 1
        if count < least or (most is not None and count > most):
            return f"{words[0]} has {count} arguments"
        if kind == "service":
            section.setdefault(words[0], []).append(words[1:])
            return _option_problem(words)
        section.append(words)
        return _command_problem(words)

    def _service(self, words):
        self._section = None
        if len(words) < 3:
            return "service wants a name and a program"
        if not re.fullmatch(r"[A-Za-z0-9_.-]+", words[1]):
            return f"service name {words[1]}"
        if not words[2].startswith("/"):
            return f"the program of {words[1]} is not absolute"
        if words[1] in self.services:
            return f"service {words[1]} is there already"
        self.services[words[1]] = {"program": words[2]}
        self._section = ("service", self.services[words[1]])
        return None

    def _action(self, words):
        self._section = None
        stages = 0
        if len(words) % 2 == 1 or any(joint != "&&" for joint in words[2::2]):
            return "triggers are joined by &&"
        for trigger in words[1::2]:
            if trigger.startswith("property:"):
                if not re.fullmatch(r"property:[A-Za-z0-9_.:@-]+=.+", trigger):
                    return f"bad trigger {trigger}"
            elif trigger in STAGES:
                stages += 1
            else:
                return f"no boot stage {trigger}"
        if stages > 1:
            return "two boot stages never hold at once"
        self.actions.append((words[1:], []))
        self._section = ("action", self.actions[-1][1])
        return None


def _is_id(text):
    return text in IDS or text.isdigit()


def _is_mode(text):
    return re.fullmatch(r"[0-7]{3,4}", text) is not None


def _unknown_ids(names):
    unknown = [name for name in names if not _is_id(name)]
    return f"unknown id {unknown[0]}" if unknown else None


def _option_problem(words):
    name, arguments = words[0], words[1:]
    if name in ("user", "group"):
        return _unknown_ids(arguments)
    if name == "socket":
        if arguments[1].split("+")[0] not in ("stream", "dgram", "seqpacket"):
            return f"socket type {arguments[1]}"
        if not _is_mode(arguments[2]):
            return f"socket mode {arguments[2]}"
        return _unknown_ids(arguments[3:5])
    if name == "seclabel" and not re.fullmatch(r"u:r:\w+:s0", arguments[0]):
        return f"label {arguments[0]}"
    return None


def _command_problem(words):
    name, arguments = words[0], words[1:]
    if name == "mkdir":
        plain = [a for a in arguments[1:] if "=" not in a]
        if plain and not _is_mode(plain[0]):
            return f"mode {plain[0]}"
        return _unknown_ids(plain[1:])
    if name == "chmod" and not _is_mode(arguments[0]):
        return f"mode {arguments[0]}"
    if name == "chown":
        return _unknown_ids(arguments[:-1])
    if name == "setprop" and not re.fullmatch(r"[A-Za-z0-9_@:-]+(\.[A-Za-z0-9_@:-]+)*", arguments[0]):
        return f"property name {arguments[0]}"
    return None


def _daemon_promises(rc):
    """What the daemon and its clients rely on: (what, whether it holds)."""
    service = rc.services.get("harrowmossd", {})
    made = {c[1]: c[2:] for trigger, commands in rc.actions if trigger == ["post-fs-data"]
            for c in commands if c[0] == "mkdir"}
    on = {" ".join(trigger): commands for trigger, commands in rc.actions}
    yield "the daemon is /system_ext/bin/harrowmossd", service.get("program") == "/system_ext/bin/harrowmossd"
    yield "class late_start", service.get("class") == [["late_start"]]
    yield "user root", service.get("user") == [["root"]]
    yield "neither oneshot, disabled nor critical", not {"oneshot", "disabled", "critical"} & set(service)
    yield "socket harrowmossd stream 0660 system shell", \
        service.get("socket") == [["harrowmossd", "stream", "0660", "system", "shell"]]
    for path in ("/data/misc/zelkalog", "/data/vendor/zelkalog"):
        yield f"mkdir {path} 0777 sdcard_rw sdcard_rw", \
            made.get(path) == ["0777", "sdcard_rw", "sdcard_rw"]
    yield "stop at shutdown", ["stop", "harrowmossd"] in on.get("shutdown", [])
    yield "mkdir /mnt/vendor/persist/harrowmoss 0700 root root", \
        made.get("/mnt/vendor/persist/harrowmoss") == ["0700", "root", "root"]


def check(kit=KIT):
    """Problems of every .rc file of the kit."""
    files = {path.name: RcFile(path) for path in sorted(kit.rglob("*.rc"))}
    problems = [problem for rc in files.values() for problem in rc.problems]
    services = {name for rc in files.values() for name in rc.services}
    for file_name, rc in files.items():
        for _, commands in rc.actions:
            problems += [f"{file_name}: {c[0]} {c[1]}: there is no such service" for c in commands
                         if c[0] in ("start", "stop", "restart", "exec_start") and c[1] not in services]
    if DAEMON_RC not in files:
        return problems + [f"there is no {DAEMON_RC}"]
    problems += [f"{DAEMON_RC}: missing: {what}" for what, holds in _daemon_promises(files[DAEMON_RC])
                 if not holds]
    return problems
