"""The checks of the device kit: nothing is found in the kit as it is, and every planted fault is."""

import pathlib
import shutil
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "tools/device"))

# pylint: disable=wrong-import-position
import blueprint_check
import kit
import policy_check
import property_check
import rc_check

RC = "device/harrowmossd.rc"
VENDOR_RC = "device/examples/harrowmoss_vendor_logs.rc"
TE = "device/sepolicy/private/harrowmossd.te"
FILES = "device/sepolicy/private/file_contexts"
APPS = "device/sepolicy/private/seapp_contexts"
PROPERTIES = "device/sepolicy/private/property_contexts"
GENFS = "device/sepolicy/private/genfs_contexts"
BP = "device/Android.bp"
ROOT_BP = "Android.bp"
END = None  # in place of a text: the new one goes to the end of the file


class KitTest(unittest.TestCase):
    """Works on a copy of what the checks read."""

    def setUp(self):
        scratch = tempfile.TemporaryDirectory(prefix="kit")
        self.addCleanup(scratch.cleanup)
        self.root = pathlib.Path(scratch.name)
        for folder in ("device", "client", "tests/pure", *kit.DAEMON_FOLDERS):
            shutil.copytree(ROOT / folder, self.root / folder)
        for file in ("Android.bp", "LICENSE"):
            shutil.copy(ROOT / file, self.root)

    def check_faults(self, check, faults):
        """Plants each (file, old text, new text); one of the problems must hold the last column."""
        for file, old, new, expected in faults:
            with self.subTest(file=file, new=new):
                path = self.root / file
                text = path.read_text()
                if old is not END:
                    self.assertIn(old, text, "the fault cannot be planted any more")
                path.write_text(text + new if old is END else text.replace(old, new))
                problems = check()
                path.write_text(text)
                self.assertTrue(any(expected in problem for problem in problems), problems)

    def rc(self):
        return rc_check.check(self.root / "device")

    def policy(self):
        return policy_check.check(self.root / "device", root=self.root)

    def properties(self):
        return property_check.check(self.root / "device", root=self.root)

    def blueprint(self):
        return blueprint_check.check(self.root)

    def test_the_kit_as_it_is(self):
        for check in (self.rc, self.policy, self.properties, self.blueprint):
            self.assertEqual(check(), [], check.__name__)

    def test_rc(self):
        self.check_faults(self.rc, (
            (RC, "0660 system shell", "0666 system shell", "missing: socket"),
            (RC, "stream 0660", "stream 0698", "socket mode 0698"),
            (RC, "socket harrowmossd stream", "socket harrowmossd tcp", "socket type tcp"),
            (RC, "class late_start", "class main", "missing: class late_start"),
            (RC, "    user root\n", "    user system\n", "missing: user root"),
            (RC, "group root system", "group root sistem", "unknown id sistem"),
            (RC, "group root", "group root adb mount wifi usb", "group has 16 arguments"),
            (RC, "    task_profiles", "    task_profile", "unknown option task_profile"),
            (RC, "    user root\n", "    user root\n    critical\n", "neither oneshot"),
            (RC, "on shutdown", "on shut-down", "no boot stage shut-down"),
            (RC, "    stop harrowmossd", "", "missing: stop at shutdown"),
            (RC, "zelkalog 0777 sdcard_rw sdcard_rw", "zelkalog 0770 system system", "missing: mkdir"),
            (RC, "zelkalog 0777", "zelkalog 0787", "mode 0787"),
            (RC, "restorecon_recursive /data/media/0", "restorecon_recursiv /data/media/0", "unknown command"),
            (RC, "restorecon_recursive /data/media/0/zelkalog", "restorecon /data/misc", "relabels"),
            (RC, "    setprop sys.zelka.harrowmossd.restorecon_media_zelkalog 0\n", "", "is reset"),
            (RC, END, "on property:a.b\n    stop x\n", "bad trigger property:a.b"),
            (RC, END, "on boot\n    setprop a..b c\n", "property name a..b"),
            (RC, END, "on boot\n    write /x \\\n    y z\n", "write has 3 arguments"),
            (RC, END, "service two bin/two\n", "is not absolute"),
            (RC, END, "service harrowmossd /x\n", "is there already"),
            (VENDOR_RC, "start harrowmoss_move_wifi", "start harrowmoss_wifi", "no such service"),
        ))
        (self.root / RC).unlink()
        self.assertEqual(self.rc(), ["there is no harrowmossd.rc"])

    def test_rc_accepts_what_init_accepts(self):
        path = self.root / "device/more.rc"
        path.write_text("on boot && property:a.b=* && property:c=1  # comment\n"
                        "    mkdir /data/x 0700 root root encryption=Require\n"
                        "    write /sys/y \"two # words\"\n"
                        "service more /vendor/bin/more --flag \\\n    last\n"
                        "    socket a dgram+passcred 0600\n    user 2999\n")
        self.assertEqual(self.rc(), [])

    def test_policy_meets_the_platforms_rules(self):
        self.check_faults(self.policy, (
            (TE, END, "allow harrowmossd self:capability dac_override;\n", "neverallow"),
            (TE, END, "allow harrowmossd pstorefs:file r_file_perms;\n", "neverallow"),
            (TE, END, "allow harrowmossd sysfs:file read;\n", "neverallow"),
            (TE, END, "allow harrowmossd debugfs:file read;\n", "userdebug: libsepol"),
            (TE, END, "allow harrowmossd harrowmossd_debugfs:file read;\n", "user: libsepol"),
            (TE, END, "allow harrowmossd mnt_vendor_file:dir search;\n", "user: libsepol"),
            (TE, END, "get_prop(harrowmossd, serialno_prop)\n", "neverallow"),
            (TE, END, "set_prop(harrowmossd, vendor_default_prop)\n", "neverallow"),
            (TE, END, "set_prop(harrowmossd_vendor_service, harrowmossd_config_prop)\n", "neverallow"),
        ))

    def test_policy_keeps_its_own_promises(self):
        self.check_faults(self.policy, (
            (TE, END, "allow harrowmossd proc_sysrq:file write;\n", "user: the policy allows harrowmossd proc_sysrq"),
            (TE, END, "allow shell harrowmossd:unix_stream_socket connectto;\n", "user: libsepol"),
            (TE, END, "allow system_app harrowmossd:unix_stream_socket connectto;\n", "neverallow"),
            (TE, END, "allow harrowmossd harrowmossd_data_file:file execute;\n", "neverallow"),
            (TE, END, "allow shell harrowmossd:process ptrace;\n", "neverallow"),
            (TE, "read_logd(harrowmossd)", "", "does not allow harrowmossd logdr_socket"),
            (TE, "allow harrowmoss_app harrowmossd:unix_stream", "dontaudit harrowmoss_app harrowmossd:unix_stream",
             "does not allow harrowmoss_app"),
            (TE, "allow harrowmossd proc_sysrq", "dontaudit harrowmossd proc_sysrq", "userdebug: the policy does not"),
            (GENFS, "harrowmossd_debugfs", "harrowmossd_debug", "harrowmossd_debug"),
        ))

    def test_contexts(self):
        self.check_faults(self.policy, (
            (FILES, "harrowmossd_data_file", "harrowmossd_dat_file", "file_contexts"),
            (FILES, "zelkalog(/.*)?               ", "zelkalog.* ", "/data/misc/zelkalogger is not ours"),
            (FILES, END, "/data/media/0/zelkalog(/.*)? u:object_r:harrowmossd_data_file:s0\n",
             "/data/media/0/zelkalog is not ours"),
            (FILES, "/data/vendor/zelkalog(/.*)?", "/data/vendor/zelkalog/common(/.*)?", "is not labelled"),
            (FILES, "/bin/harrowmossd ", "/bin/harrowmoss ", "/system_ext/bin/harrowmossd is not labelled"),
            (APPS, "domain=harrowmoss_app ", "domain=harrowmoss_ap ", "there is no domain"),
            (APPS, "seinfo=platform ", "", "without seinfo"),
            (APPS, "name=cn.zelka.harrowmoss", "", "no name"),
            (APPS, "user=", "usr=", "unknown selector usr"),
        ))

    def test_properties(self):
        last_row = "persist.sys.zelka_pwrkey_dump "
        self.check_faults(self.properties, (
            (PROPERTIES, last_row, "persist.sys.another ", "zelka_pwrkey_dump (system_prop) cannot be set"),
            (PROPERTIES, "vendor.harrowmossd.  ", "vendor.harrowmoss_  ", "minidump.status (vendor_default_prop) cannot be read"),
            (PROPERTIES, END, "sys.zelka. u:object_r:harrowmossd_state_prop:s0\n", "has a row already"),
            (PROPERTIES, END, "persist.bluetooth.btsnoopenable u:object_r:harrowmossd_state_prop:s0 exact bool\n",
             "has a row already"),
            (PROPERTIES, END, "a.b object_r:harrowmossd_state_prop:s0\n", "not a name and a context"),
            (PROPERTIES, END, "a.b u:object_r:harrowmossd_state_prop:s0 exact text\n", "exact text"),
            (PROPERTIES, END, "a.b u:object_r:harrowmossd_sate_prop:s0\n", "there is no type harrowmossd_sate_prop"),
            (TE, "set_prop(harrowmossd, exported_bluetooth_prop)", "", "btsnoopenable (exported_bluetooth_prop)"),
            (TE, "set_prop(harrowmossd, harrowmossd_state_prop)", "", "sys.zelka.modemdump"),
        ))

    def test_properties_are_found_in_the_sources(self):
        source = "catchers/switches.cpp"
        self.check_faults(self.properties, (
            (source, END, 'void f() { property_set("persist.sys.new.switch", "1"); }\n', "persist.sys.new.switch"),
            (source, END, 'void f() {\n  property_set(\n      "persist.sys.new.switch", "1");\n}\n', "persist.sys.new.switch"),
            (source, END, 'constexpr char kNewProp[] = "ctl.start";\nvoid f() { property_set(kNewProp, "1"); }\n',
             "ctl.start (default_prop) cannot be set"),
            (source, END, "void f(const char* name) { property_set(name, \"1\"); }\n", "cannot tell which property name is"),
            (source, END, 'int f() { return get_int_prop("vendor.other.state", 0); }\n', "vendor.other.state"),
            ("selflog/props.h", '"persist.sys.zklog.enable"', '"persist.sys.zk.enable"', "persist.sys.zk.enable"),
        ))
        with (self.root / source).open("a") as file:
            file.write('// property_set("persist.sys.no", "1") would be wrong\n/* property_set(x, "") */\n')
        self.assertEqual(self.properties(), [])

    def test_blueprint(self):
        self.check_faults(self.blueprint, (
            (ROOT_BP, '        "input/*.cpp",\n', "", "input/event_line.cpp: no module compiles it"),
            (ROOT_BP, '"client/*.cpp"', '"client/main.cpp"', "client/text.cpp: no module compiles it"),
            (ROOT_BP, '"protocol/*.cpp"', '"protocol/*.cpp", "platform/linux/*.cpp", "base/*.h"', "names no file"),
            (BP, "    system_ext_specific: true,\n", "", "not system_ext_specific"),
            (BP, '":harrowmossctl_srcs"', '":harrowmossctl_src"', "there is no module :harrowmossctl_src"),
            (BP, '        "-Werror",\n', "", "without -Werror"),
            (BP, '        "-D_FORTIFY_SOURCE=2",\n', "", "without -D_FORTIFY_SOURCE=2"),
            (BP, 'name: "harrowmossctl"', 'name: "harrowmossd"', "there are two of it"),
            ("base/text.cpp", END, "#ifdef __ANDROID__\n#endif\n", "asks which platform"),
            (BP, "fuzz/corpus/*", "fuzz/corpora/*", "names no file"),
        ))


if __name__ == "__main__":
    unittest.main()
