"""One phone on adb, and the results of a command."""

import json
import os
import shlex
import subprocess
import threading
import time

ADB = os.environ.get("ADB", "adb")
LISTING_S = 30  # for adb's own list of devices; it may have to start its server

# Exit codes, from good to bad. Up to BAD_REPLY they are harrowmossctl's own.
DONE, FAILED, MISUSE, NO_DAEMON, BUSY, BAD_REPLY, LOST, TOO_SLOW, NOT_WRITTEN, DAMAGED = range(10)
WORDS = ("done", "failed", "misuse", "no daemon", "busy", "bad reply", "lost", "too slow", "not written", "damaged")


class PhoneError(Exception):
    """A failed command: its exit code, and the reason as text."""

    def __init__(self, code, text):
        super().__init__(text)
        self.code = code


def parse_devices(text):
    """{serial: state} of what `adb devices` prints."""
    rows = [line.split("\t") for line in text.splitlines() if "\t" in line]
    return {row[0]: row[1].strip() for row in rows}


def devices():
    try:
        listing = subprocess.run([ADB, "devices"], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                 timeout=LISTING_S, check=False)
    except FileNotFoundError:
        raise PhoneError(MISUSE, f"there is no {ADB}: apt-get install adb") from None
    except subprocess.TimeoutExpired:
        raise PhoneError(TOO_SLOW, f"adb devices: no answer within {LISTING_S} s") from None
    if listing.returncode != 0:
        raise PhoneError(LOST, "adb devices: " + summary(listing.stderr))
    return parse_devices(listing.stdout)


def summary(text):
    """The first line, which has the reason, and the last, which has the verdict."""
    lines = [line.strip() for line in text.splitlines() if line.strip()]
    return "; ".join(dict.fromkeys(lines[:1] + lines[-1:]))


def size_text(count):
    for unit in ("bytes", "KiB", "MiB", "GiB"):
        if count < 1024 or unit == "GiB":
            return f"{count} bytes" if unit == "bytes" else f"{count:.1f} {unit}"
        count /= 1024


def parse_end(text):
    """(exit status, text before it) of standard error that ends with our mark; None: it was cut off."""
    said, mark, status = text.rstrip("\r\n").rpartition("exit ")
    if not mark or not status.isdigit() or (said and said[-1] != "\n"):
        return None
    return int(status), said


class Phone:
    """Runs commands with a common deadline."""

    everyone = []

    def __init__(self, serial, seconds):
        self.serial = serial
        self.seconds = seconds
        self.deadline = time.monotonic() + seconds
        self.running = None  # adb
        self.too_slow = False
        Phone.everyone.append(self)

    def ctl(self, words, take=None):
        """harrowmossctl WORDS there: (exit status, standard output, summary of standard error). `take` gets the
        output block by block instead. adb's own status is 0 also when the phone is gone: the last line tells."""
        command = shlex.join(["harrowmossctl", *words]) + '; echo "exit $?" >&2'
        with subprocess.Popen([ADB, "-s", self.serial, "shell", "-T", command], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE) as self.running:
            timer = threading.Timer(max(0, self.deadline - time.monotonic()), self.give_up)
            timer.start()  # fires at once if the time is already over
            blocks = []
            said = []
            errors = threading.Thread(target=lambda: said.append(self.running.stderr.read()))
            errors.start()
            try:
                while block := self.running.stdout.read1(1 << 20):
                    (take or blocks.append)(block)
            finally:
                timer.cancel()
                self.running.kill()  # it has ended, or its output is not read
                errors.join()
        if self.too_slow:
            raise PhoneError(TOO_SLOW, f"not done within {self.seconds:g} s; the daemon goes on with it")
        text = said[0].decode(errors="replace")
        end = parse_end(text)
        if end is None:
            raise PhoneError(LOST, f"the phone went away; {summary(text)}".rstrip("; "))
        return end[0], b"".join(blocks), summary(end[1])

    def give_up(self):
        self.too_slow = True
        if self.running:
            self.running.kill()

    def ask(self, *words):
        """The reply of harrowmossctl --json; its failure is a PhoneError with its text."""
        status, output, said = self.ctl(["--json", *words])
        try:
            answer = json.loads(output)
        except ValueError:
            answer = {"error": said} if status else {}
        if status != 0 or "error" in answer or not answer:
            code = status if DONE < status <= BAD_REPLY else BAD_REPLY if not status else FAILED
            raise PhoneError(code, answer.get("error") or said or f"harrowmossctl ended with {status}, without a word")
        return answer
