"""Archives of runs: pulled under a temporary name, verified against their own manifest, then named."""

import contextlib
import fcntl
import hashlib
import os
import pathlib
import re
import shutil
import tarfile
import zlib

from phone import BAD_REPLY, DAMAGED, DONE, FAILED, MISUSE, NOT_WRITTEN, PhoneError, size_text

BLOCK = 1 << 20
NOT_SUMMED = "-" * 64  # in a manifest: the file could not be read
UNPRINTABLE = re.compile("[\0-\x1f\x7f-\x9f\ud800-\udfff]")  # the last: bytes that are no UTF-8
ROW = re.compile(r" *(\d+) ([0-9a-f-]{64})  (.*)")


def choose_run(runs, wanted):
    """The row of `harrowmossctl runs` for a name, a number or "latest"."""
    if wanted == "latest":
        found = max(runs, key=lambda run: run["sequence"], default=None)
    else:
        found = next((run for run in runs if wanted in (run["name"], str(run["sequence"]))), None)
    if found is None:
        raise PhoneError(MISUSE, "there is no run yet" if not runs else f"there is no run {wanted}")
    if found["state"] == "capturing":
        raise PhoneError(FAILED, f"{found['name']} is being captured: stop first")
    return found


def parse_manifest(text):
    """Its head as {key: value}, and {path: (bytes, checksum)}."""
    head, _, rows = text.partition("\n\n")
    fields = dict(line.split(": ", 1) for line in head.splitlines() if ": " in line)
    found = [ROW.fullmatch(row) for row in rows.split("\n") if row]
    if fields.get("harrowmoss-manifest") != "1" or None in found or len(found) != int(fields.get("files", -1)):
        raise PhoneError(DAMAGED, "its manifest cannot be read")
    return fields, {row[3]: (int(row[1]), row[2]) for row in found}


def one_line(path):
    """A path in the manifest's form."""
    return UNPRINTABLE.sub(lambda c: "".join(f"\\x{b:02x}" for b in c[0].encode(errors="surrogateescape")), path)


def verify(path):
    """The head of the manifest; a PhoneError when the archive's content differs from the manifest."""
    try:
        with tarfile.open(path, "r:gz", errors="surrogateescape", encoding="utf-8") as archive:
            first = archive.next()
            text = archive.extractfile(first).read() if first and first.name.endswith(".manifest.txt") else b""
            head, expected = parse_manifest(text.decode(errors="surrogateescape"))
            for member in archive:
                if member is first or not (member.isreg() or member.islnk()):
                    continue
                size, checksum = expected.pop(one_line(member.name), (None, None))
                if size is None:
                    raise PhoneError(DAMAGED, f"{member.name} is not in its manifest")
                found = hashlib.sha256()
                content = archive.extractfile(member)
                while block := content.read(BLOCK):
                    found.update(block)
                if checksum not in (found.hexdigest(), NOT_SUMMED):
                    raise PhoneError(DAMAGED, f"{member.name} is not what its manifest says")
    except (tarfile.TarError, EOFError, zlib.error, ValueError, AttributeError) as error:
        raise PhoneError(DAMAGED, f"it is no whole archive: {error}") from None
    except OSError as error:
        raise not_written(path, error) if error.errno else PhoneError(DAMAGED, f"{error}") from None
    missing = [name for name, (_, checksum) in expected.items() if checksum != NOT_SUMMED]
    if missing:
        raise PhoneError(DAMAGED, f"{missing[0]} is missing")
    return head


def not_written(path, error):
    """An error on this computer, not on the phone."""
    try:
        free = f"; {shutil.disk_usage(pathlib.Path(path).parent).free} bytes are free there now"
    except OSError:
        free = ""
    return PhoneError(NOT_WRITTEN, f"{path}: {error.strerror or error}{free}")


def pull(phone, run_name, directory, tell):
    """The run's archive in DIRECTORY/SERIAL/. Only a verified archive ever has that name."""
    tell("asks for its runs")
    run = choose_run(phone.ask("runs")["runs"], run_name)["name"]
    if "/" in run:
        raise PhoneError(DAMAGED, f"no name of a run: {run}")
    place = pathlib.Path(directory, re.sub(r"[^A-Za-z0-9._-]", "_", phone.serial))
    final = place / f"{run}.tar.gz"
    try:
        place.mkdir(parents=True, exist_ok=True)
        with alone_in(place):
            how = "there already" if final.exists() and is_whole(final, run, tell) else None
            how = how or pull_into(phone, run, final, tell)
            result = {"run": run, "archive": str(final), "bytes": final.stat().st_size}
    except OSError as error:
        raise not_written(place, error) from None
    return {**result, "text": f"{final}, {size_text(result['bytes'])}, {how}"}


@contextlib.contextmanager
def alone_in(place):
    """Two processes that write the same temporary file would name each other's partial file."""
    directory = os.open(place, os.O_RDONLY | os.O_DIRECTORY)
    try:
        try:
            fcntl.flock(directory, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise PhoneError(NOT_WRITTEN, f"{place}: another fleet pulls into it") from None
        except OSError:
            pass  # network file systems may not lock directories
        yield
    finally:
        os.close(directory)


def is_whole(final, run, tell):
    """For an archive that was pulled before."""
    tell(f"{run}: there already, verifies")
    try:
        return bool(verify(final))
    except PhoneError:
        return False


def pull_into(phone, run, final, tell):
    part = final.with_name(f".{run}.tar.gz.part")
    try:
        with open(part, "wb") as file:
            fetch(phone, run, file, tell)
            file.flush()
            os.fsync(file.fileno())
        tell(f"{run}: verifies")
        files = verify(part)["files"]
        os.replace(part, final)
        return f"{files} files verified"
    finally:
        with contextlib.suppress(OSError):
            part.unlink()


def fetch(phone, run, file, tell):
    pulled = 0

    def take(block):
        nonlocal pulled
        file.write(block)
        pulled += len(block)
        tell(f"{run}: pulls", size_text(pulled))

    tell(f"{run}: packs")
    status, _, said = phone.ctl(["pack", run, "-o", "-"], take)
    if status != DONE:
        raise PhoneError(status if status <= BAD_REPLY else FAILED, said)
