"""Compiles and links every file of the daemon and the client as a device does: clang, libc++, no exceptions,
no RTTI, the platform's interface headers, and libraries that hold the platform's functions and nothing
else."""

import pathlib
import re

from kit import ROOT, run

FUNCTIONS = pathlib.Path(__file__).with_name("platform_functions.txt")


def read_functions(path=FUNCTIONS):
    """Library name -> names that may be linked."""
    libraries, current = {}, None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        words = line.split("#", 1)[0].split()
        heading = re.fullmatch(r"\[(lib\w+\.so)\]", line.strip())
        if heading:
            current = libraries.setdefault(heading.group(1), [])
        elif words and current is None:
            raise ValueError(f"{path}:{number}: a name before the first [library]")
        elif words:
            current += words
    return libraries


def make_stubs(directory, libraries):
    """One shared library for each name, with an empty function for each of its names."""
    directory.mkdir(parents=True, exist_ok=True)
    problems = []
    for library, names in libraries.items():
        source = directory / f"{library}.s"
        source.write_text("".join(f".globl {n}\n.type {n}, @function\n{n}:\n" for n in names) + "ret\n")
        result = run(["clang", "-shared", "-nostdlib", f"-Wl,-soname,{library}", "-o", directory / library,
                      source])
        if result.returncode != 0:
            problems.append(f"{library}: {result.stderr.strip()}")
    return problems


def check(build_directory, root=ROOT):
    """Problems, each a compiler's or linker's line; made anew in `build_directory` as far as needed."""
    stubs = build_directory / "stubs"
    problems = make_stubs(stubs, read_functions())
    if problems:
        return problems
    # No start files and no default libraries: the C library of this machine has more than the
    # platform's. libc++ is the real one; what it calls itself is not ours to answer for.
    link = "-nostdlib -Wl,-e,main -Wl,--allow-shlib-undefined"
    libraries = f"-L{stubs} -lc++ -lc++abi -lc -lm -lgcc -lgcc_s"
    configure = run([
        "cmake", "-S", root / "device", "-B", build_directory / "build", "-G", "Ninja",
        "-DCMAKE_CXX_COMPILER=clang++", "-DCMAKE_CXX_FLAGS=-stdlib=libc++",
        "-DCMAKE_CXX_COMPILER_WORKS=1",  # its trial program has start files
        f"-DCMAKE_EXE_LINKER_FLAGS={link}", f"-DCMAKE_CXX_STANDARD_LIBRARIES={libraries}",
        f"-DHARROWMOSS_PLATFORM_INCLUDE={root / 'platform/linux/include'}",
        f"-DHARROWMOSS_PLATFORM_LIBS={stubs}"])
    if configure.returncode != 0:
        return [configure.stderr.strip() or configure.stdout.strip()]
    build = run(["ninja", "-C", build_directory / "build", "-j2", "-k0"])
    return [] if build.returncode == 0 else _problems_of(build.stdout)


def _problems_of(output):
    lines = re.findall(r"^.*(?: error: |undefined reference|fatal error).*$", output, re.M)
    lines = [line for line in lines if "linker command failed" not in line]
    return list(dict.fromkeys(lines)) or output.splitlines()[-10:]
