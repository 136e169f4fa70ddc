"""Each check of the device kit finds an injected fault, one for each property that it checks. tools/device/check
tests the kit itself."""

import pathlib
import shutil
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "tools/device"))

# pylint: disable=wrong-import-position
import accesses
import blueprint_check
import compile_check
import kit
import policy
import policy_check
import property_check
import rc_check

RC = "device/harrowmossd.rc"
TE = "device/sepolicy/private/harrowmossd.te"
FILES = "device/sepolicy/private/file_contexts"
APPS = "device/sepolicy/private/seapp_contexts"
PROPERTIES = "device/sepolicy/private/property_contexts"
BP = "device/Android.bp"
SMALL = "#include <cutils/properties.h>\n#include <string>\nint main() { return property_set(\"a\", \"\"); }\n"
END = None  # in place of a text: appends the new one
PLATFORM = kit.Platform.find()
SCRATCH = ROOT / "build/device-check/policy"  # keeps the results for the platform alone


class PlantedFaults(unittest.TestCase):
    """Works on a copy of the files that the checks read."""

    def setUp(self):
        scratch = tempfile.TemporaryDirectory(prefix="kit")
        self.addCleanup(scratch.cleanup)
        self.root = pathlib.Path(scratch.name) / "kit"
        for folder in ("device", "client", "tests/pure", "platform/linux/include", *kit.DAEMON_FOLDERS):
            shutil.copytree(ROOT / folder, self.root / folder)
        for file in ("Android.bp", "LICENSE"):
            shutil.copy(ROOT / file, self.root)

    def plant(self, file, old, new):
        path = self.root / file
        text = path.read_text()
        if old is not END:
            self.assertIn(old, text, "the fault cannot be planted any more")
        path.write_text(text + new if old is END else text.replace(old, new))
        return path, text

    def check_faults(self, check, faults):
        """Injects each (file, old text, new text) alone; one of the problems must contain the last column."""
        for file, old, new, expected in faults:
            with self.subTest(file=file, new=new):
                path, text = self.plant(file, old, new)
                problems = check()
                path.write_text(text)
                self.assert_each_found([expected], problems)

    def assert_each_found(self, wanted, problems):
        for expected in wanted:
            self.assertTrue(any(expected in problem for problem in problems), (expected, problems))

    def compiled(self, platform, libraries, source):
        """Problems of a module with a single small program."""
        for path in self.root.rglob("Android.bp"):
            path.unlink()
        (self.root / "Android.bp").write_text(
            'cc_binary { name: "small", srcs: ["small.cpp"], cflags: ["-Wall", "-Werror"],\n'
            f'    shared_libs: [{libraries}] }}\n')
        (self.root / "small.cpp").write_text(source)
        return compile_check.check(platform, self.root / "out", self.root)


class KitTest(PlantedFaults):
    """Faults found without the platform's files."""

    def test_rc(self):
        self.check_faults(lambda: rc_check.check(self.root / "device"), (
            (RC, "0660 system shell", "0666 system shell", "missing: socket"),
            (RC, "socket harrowmossd stream", "socket harrowmossd tcp", "socket type tcp"),
            (RC, "group root system", "group root sistem", "unknown id sistem"),
            (RC, "group root", "group root adb mount wifi usb", "group has 16 arguments"),
            (RC, "    task_profiles", "    task_profile", "unknown option task_profile"),
            (RC, "on shutdown", "on shut-down", "no boot stage shut-down"),
            (RC, "zelkalog 0777", "zelkalog 0787", "mode 0787"),
            (RC, END, "on property:a.b\n    stop x\n", "bad trigger property:a.b"),
            (RC, END, "on boot\n    write /x \\\n    y z\n", "write has 3 arguments"),
            (RC, END, "service harrowmossd /x\n", "is there already"),
            ("device/examples/harrowmoss_vendor_logs.rc", "start harrowmoss_move_wifi", "start harrowmoss_wifi",
             "no such service"),
        ))

    def test_contexts_and_rows(self):
        def check():
            return policy_check.check(None, [], self.root / "device", self.root) + \
                property_check.check(None, [], self.root / "device", self.root)
        self.assertEqual(check(), [])
        self.check_faults(check, (
            (FILES, "zelkalog(/.*)?               ", "zelkalog.* ", "/data/misc/zelkalogger is not ours"),
            (FILES, "/bin/harrowmossd ", "/bin/harrowmoss ", "/system_ext/bin/harrowmossd is not labelled"),
            (APPS, "seinfo=platform ", "", "without seinfo"),
            (APPS, "name=cn.zelka.harrowmoss", "", "no name"),
            (PROPERTIES, END, "sys.zelka. u:object_r:harrowmossd_state_prop:s0\n", "has a row already"),
            (PROPERTIES, END, "a.b u:object_r:harrowmossd_state_prop:s0 exact text\n", "exact text"),
            ("catchers/switches.cpp", END, 'void f(const char* name) { property_set(name, "1"); }\n',
             "cannot tell which property name is"),
        ))

    def test_blueprint(self):
        self.check_faults(lambda: blueprint_check.check(self.root), (
            ("Android.bp", '        "input/*.cpp",\n', "", "input/event_line.cpp: no module compiles it"),
            ("Android.bp", '"protocol/*.cpp"', '"protocol/*.cpp", "base/*.c"', "names no file"),
            (BP, "    system_ext_specific: true,\n", "", "not system_ext_specific"),
            (BP, '":harrowmossctl_srcs"', '":harrowmossctl_src"', "there is no module :harrowmossctl_src"),
            (BP, '        "-Werror",\n', "", "without -Werror"),
            (BP, 'name: "harrowmossctl"', 'name: "harrowmossd"', "there are two of it"),
            ("base/text.cpp", END, "#ifdef __ANDROID__\n#endif\n", "asks which platform"),
        ))

    def test_compile(self):
        self.assertEqual(self.compiled(None, '"libcutils"', SMALL), [])
        found = self.compiled(None, '"libbinder"', "#include <binder/Parcel.h>\n#include <typeinfo>\n#define ALOG 1\n"
                              "int f() { throw 1; }\nconst char* g() { return typeid(int).name(); }\n")
        self.assert_each_found(("exceptions", "typeid", "ALOG"), found)


@unittest.skipUnless(PLATFORM, "the platform's files are not here")
class PlatformTest(PlantedFaults):
    """Faults found only with the platform's files. Builds its policy, which takes minutes where ./dev check has not
    built it before."""

    def built(self, build):
        folder = self.root.parent / "policy"
        folder.mkdir()
        for passed in SCRATCH.glob("*.passed"):
            shutil.copy(passed, folder)
        return policy.Policy(PLATFORM, build, self.root / "device", folder)

    def test_what_the_platform_forbids(self):
        for rule in ("self:capability dac_override", "sysfs_batteryinfo:file read", "pstorefs:file read",
                     "self:capability sys_ptrace", "harrowmossd_debugfs:file read", "mnt_vendor_file:dir search",
                     "harrowmossd_data_file:file execute"):
            self.plant(TE, END, f"allow harrowmossd {rule};\n")
        self.plant(TE, "-crash_dump ", "")
        errors = self.built(("user", True)).errors
        self.assert_each_found(("dac_override", "sysfs_batteryinfo", "pstorefs", "sys_ptrace", "debugfs", "mnt_vendor_file",
                         "harrowmossd_data_file", "crash_dump"), errors)

    def test_what_the_policy_must_allow(self):
        for file, old, new in (
                (TE, "read_logd(harrowmossd)", ""),
                (TE, END, "allow harrowmossd proc_sysrq:file write;\n"),
                (TE, "fuse sdcard_type }:dir", "sdcard_type }:dir"),
                (TE, "set_prop(harrowmossd, harrowmossd_state_prop)", ""),
                (PROPERTIES, "ro.vendor.build.display.id ", "ro.vendor.build.display "),
                (FILES, "harrowmossd_data_file", "harrowmossd_dat_file"),
                ("device/sepolicy/private/genfs_contexts", "harrowmossd_debugfs", "harrowmossd_sysfs")):
            self.plant(file, old, new)
        built = self.built(("user", True))
        self.assertEqual(built.errors, [])
        problems = policy_check.check(PLATFORM, [built], self.root / "device", self.root) + \
            property_check.check(PLATFORM, [built], self.root / "device", self.root)
        self.assert_each_found(("does not allow harrowmossd logdr_socket", "allows harrowmossd proc_sysrq", "mkdir /sdcard/*",
                         "ro.vendor.build.display.id", "sys.zelka.modemdump", "no type harrowmossd_dat_file",
                         "harrowmossd_sysfs is no debugfs_type"), problems)
        table = self.root / "accesses.txt"
        table.write_text("/data/misc/ stat x refused a reason\n/sys/fs/pstore/a read x\n/data/misc/ look x\n")
        problems = accesses.check(PLATFORM, built, self.root / "device", table)
        self.assert_each_found(("marked as refused, and allowed", "pstorefs file open", "not a row", "few rows"), problems)

    def test_compile(self):
        missing = SMALL.replace("{ return", "{ (void)secure_getenv(\"A\"); return")
        for libraries, source, expected in (
                ('"libcutils"', missing, "secure_getenv"),
                ('', SMALL, "undefined symbol: property_set"),
                ('"libcutils", "liblog"', SMALL, "does without liblog")):
            self.assert_each_found([expected], self.compiled(PLATFORM, libraries, source))
        self.assertEqual(self.compiled(PLATFORM, '"libcutils"', SMALL), [])


if __name__ == "__main__":
    unittest.main()
