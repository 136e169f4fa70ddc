"""The link check finds what the platform does not have. Works on a tree of a few lines, built by the real
device/CMakeLists.txt: the whole daemon takes a minute and is `tools/device/check link`."""

import pathlib
import shutil
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "tools/device"))

import link_check  # pylint: disable=wrong-import-position

PLAIN = """#include <cutils/properties.h>
#include <android/log.h>
#include <binder/Parcel.h>
#include <string>
#include <thread>
void work() {
  char value[PROPERTY_VALUE_MAX];
  std::string text(property_get("a", value, ""), 'x');
  android::Parcel parcel;
  parcel.writeCString(text.c_str());
  std::thread([] {}).detach();
  __android_log_print(ANDROID_LOG_INFO, "a", "%s", text.c_str());
}
"""
# Functions that link here only; all are planted at once.
MISSING = {
    "secure_getenv": "#include <stdlib.h>\nconst char* f0() { return secure_getenv(\"A\"); }",
    "pthread_cancel": "#include <pthread.h>\nvoid f1(pthread_t t) { pthread_cancel(t); }",
    "system": "#include <stdlib.h>\nvoid f2() { (void)!system(\"x\"); }",
}
# (what no compiler takes, what must be said); each in a file of its own.
WRONG = (
    ("void f() { throw 1; }", "exceptions"),
    ("#include <typeinfo>\nconst char* f() { return typeid(int).name(); }", "typeid"),
    ("#include <utils/String8.h>", "String8.h"),
    ("#include \"phone/util.h\"", "phone/util.h"),
    ("#include \"platform/linux/bench_phone.h\"", "bench_phone.h"),
    ("#include <cutils/properties.h>\nvoid f() { char small[8]; property_get(\"a\", small, \"\"); }",
     "PROPERTY_VALUE_MAX"),
    ("void f(int size, int) { int size2 = size; { int size2 = 1; (void)size2; } (void)size2; }", "shadow"),
)


class LinkTest(unittest.TestCase):

    def setUp(self):
        scratch = tempfile.TemporaryDirectory(prefix="link")
        self.addCleanup(scratch.cleanup)
        self.root = pathlib.Path(scratch.name)
        for folder in ("daemon", "client", "tests/pure"):
            (self.root / folder).mkdir(parents=True)
        (self.root / "device").mkdir()
        shutil.copy(ROOT / "device/CMakeLists.txt", self.root / "device")
        shutil.copytree(ROOT / "platform/linux/include", self.root / "platform/linux/include")
        shutil.copy(ROOT / "tests/pure/platform_signatures.cpp", self.root / "tests/pure")
        (self.root / "daemon/main.cpp").write_text("void work();\nint main() { work(); }\n")
        (self.root / "client/main.cpp").write_text(
            '#include <cutils/properties.h>\nint main() { return property_set("a", nullptr); }\n')
        self.work = self.root / "daemon/work.cpp"
        self.work.write_text(PLAIN)

    def check(self):
        return link_check.check(self.root / "out", self.root)

    def test_what_the_platform_has_links(self):
        self.assertEqual(self.check(), [])

    def check_finds(self, expected):
        problems = self.check()
        for text in expected:
            with self.subTest(text=text):
                self.assertTrue(any(text in problem for problem in problems), problems)

    def test_functions_that_it_does_not_have_are_found(self):
        self.work.write_text("\n".join((PLAIN, *MISSING.values(), "")))
        self.check_finds(MISSING)

    def test_what_it_does_not_compile_is_found(self):
        for number, (planted, _) in enumerate(WRONG):
            (self.root / f"daemon/wrong{number}.cpp").write_text(planted + "\n")
        self.check_finds(text for _, text in WRONG)

    def test_a_signature_that_drifts_is_found(self):
        header = self.root / "platform/linux/include/cutils/properties.h"
        header.write_text(header.read_text().replace("int property_set(const char* key,",
                                                     "long property_set(const char* key,"))
        self.assertTrue(any("platform_signatures" in problem for problem in self.check()))


if __name__ == "__main__":
    unittest.main()
