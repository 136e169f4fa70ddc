"""Compiles what the Android.bp files name as a device build does, with the platform's headers, and links
each program against exactly the libraries that its module names. Without the platform's files it compiles
with the host's libc++ and our stand-ins for the headers, and links nothing."""

import re
import shutil

from blueprint_check import load, sources_of, with_defaults
from kit import ROOT, run

PROGRAMS = {"cc_binary": "main", "cc_test": "main", "cc_fuzz": "LLVMFuzzerTestOneInput"}  # and their entry
# Soong's own flags for C++ of a platform module, beside what the module names.
SOONG_FLAGS = """-fno-exceptions -fno-rtti -fPIC -O2 -DANDROID -DNDEBUG -UDEBUG -ffunction-sections
    -fno-strict-aliasing -fstack-protector-strong -ftrivial-auto-var-init=zero
    -enable-trivial-auto-var-init-zero-knowing-it-will-be-removed-from-clang -Wimplicit-fallthrough
    -Winit-self -Wpointer-arith -Wsign-promo -Wunguarded-availability -Werror=date-time""".split()
TARGET = ("--target=aarch64-linux-android33", "-nostdlibinc")
C_LIBRARY = "generated-headers/bionic/libc/libc/android_vendor.33_arm64_armv8-a_shared/gen/include"
# In the compiler's order; the last column is the library that a module must name to see the headers.
INCLUDES = (
    ("external/libcxx/include", None), ("external/libcxxabi/include", None), (C_LIBRARY, None),
    ("bionic/libc/kernel/uapi", None), ("bionic/libc/kernel/uapi/asm-arm64", None),
    ("bionic/libc/kernel/android/uapi", None), ("frameworks/native/libs/binder/include", "libbinder"),
    ("system/core/libcutils/include", None), ("system/core/libutils/include", None),
    ("system/logging/liblog/include_vndk", None), ("system/libbase/include", "libbinder"),
)
DEFAULT_LIBRARIES = ("libc++", "libc", "libm", "libdl")  # of every module
GTEST = "/usr/src/googletest/googletest"  # what a cc_test gets without naming it


def check(platform, build_directory, root=ROOT):
    """Problems: a compiler's or linker's line each, or a library that a program does without. Anew in
    `build_directory` as far as needed."""
    modules, problems = load(root)
    if problems:
        return problems
    out = build_directory / ("arm64" if platform else "host")
    out.mkdir(parents=True, exist_ok=True)
    (out / "build.ninja").write_text("\n".join(_build_file(modules, platform, root)))
    build = run(["ninja", "-C", out, "-k0"])
    if build.returncode != 0:
        return _problems_of(build.stdout)
    return list(_superfluous(modules, out)) if platform else []


def _build_file(modules, platform, root):
    """The lines of a build.ninja: an object for each source of a module, a program for each that has an
    entry."""
    compiler = (["ccache"] if shutil.which("ccache") else []) + ["clang++"]
    target = " ".join(TARGET if platform else ("-stdlib=libc++",))
    yield "rule compile"
    yield f"  command = {' '.join(compiler)} {target} {' '.join(SOONG_FLAGS)} $flags -MD -MF $out.d -c $in -o $out"
    yield "  depfile = $out.d\n  deps = gcc"
    yield "rule link"
    yield f"  command = clang++ {target} -fuse-ld=lld -nostdlib -pie -Wl,-z,defs -Wl,--as-needed " \
          "-Wl,--gc-sections -Wl,-e,$entry $flags $in -Wl,--start-lib $archived -Wl,--end-lib $libraries -o $out"
    objects = {}
    for name, module in modules.items():
        kind, properties, _ = merged = with_defaults(module, modules)
        if kind != "cc_library_static" and kind not in PROGRAMS:
            continue
        objects[name] = []
        flags = _flags(properties, kind, platform, root)
        sources = [*sources_of(merged, modules)]
        if kind == "cc_test" and platform:
            sources += [f"{GTEST}/src/gtest-all.cc", f"{GTEST}/src/gtest_main.cc"]
        for source in sources:
            objects[name].append(f"{name}/{str(source).strip('/').replace('/', '_')}.o")
            yield f"build {objects[name][-1]}: compile {source}\n  flags = {flags}"
    for name, module in modules.items():
        kind, properties, _ = with_defaults(module, modules)
        if kind in PROGRAMS and platform:
            archived = [o for library in properties.get("static_libs", []) for o in objects[library]]
            yield f"build {name}.elf: link {' '.join(objects[name])} | {' '.join(archived)}"
            yield f"  entry = {PROGRAMS[kind]}\n  archived = {' '.join(archived)}"
            yield f"  flags = {' '.join(f'-L{folder}' for folder in platform.library_folders)}"
            libraries = (*properties.get("shared_libs", []), *DEFAULT_LIBRARIES)
            yield f"  libraries = {' '.join(f'-l{library[3:]}' for library in libraries)}"
    yield ""


def _flags(properties, kind, platform, root):
    flags = [f"-std={properties.get('cpp_std', 'gnu++17')}", *properties.get("cflags", []), f"-I{root}"]
    libraries = properties.get("shared_libs", [])
    if platform:
        flags += [f"-isystem {platform.include / path}" for path, library in INCLUDES
                  if library in (None, *libraries)]
    else:
        flags += [f"-I{root}/platform/linux/include", "-U_FORTIFY_SOURCE"]
    if kind == "cc_test":
        flags += [f"-isystem {GTEST}/include", f"-I{GTEST}"]
    return " ".join(flags)


def _superfluous(modules, out):
    """Linked as needed, a library that a program does not use is not in its list of needed ones."""
    for name, module in modules.items():
        kind, properties, _ = with_defaults(module, modules)
        if kind not in PROGRAMS:
            continue
        needed = re.findall(r"\(NEEDED\).*\[(.+)\.so\]", run(["readelf", "-d", out / f"{name}.elf"]).stdout)
        for library in properties.get("shared_libs", []):
            if library not in needed:
                yield f"{name}: does without {library}"


def _problems_of(output):
    lines = re.findall(r"^.*(?: error: |undefined symbol|undefined reference|fatal error).*$", output, re.M)
    lines = [line for line in lines if "linker command failed" not in line]
    return list(dict.fromkeys(lines)) or output.splitlines()[-10:]
