"""harrowmossctl on many phones at once, through adb.

The phones are those of `adb devices`, or of -s. Each has --timeout seconds; they are asked side by side.
The exit status is that of the worst phone: 0 done; 1 to 5 as harrowmossctl's; 6 lost, the phone was not there or
went away; 7 too slow; 8 not written, no room here for one; 9 damaged, the archive is not what its manifest says.
"""

import argparse
import concurrent.futures
import json
import shutil
import signal
import sys
import threading
import time

from archive import pull
from phone import DONE, FAILED, LOST, MISUSE, WORDS, Phone, PhoneError, devices, size_text

INTERRUPTED = 130
GRACE_S = 10  # harrowmossctl times out first, with a message


def status(phone, _options, tell):
    tell("asks")
    answer = phone.ask("status")
    if answer["daemon_pid"] is None:
        text = "no daemon is seen"
    else:
        text = f"logging {answer['types']}" if answer["logging"] else "not logging"
    used, quota = size_text(answer["used_bytes"]), size_text(answer["quota_bytes"])
    return {"answer": answer, "text": f"{text}; {used} of {quota}"}


def start(phone, options, tell):
    tell(f"starts {options.types}")
    answer = phone.ask("--timeout", f"{options.timeout:g}", "start", options.types)
    if "warning" in answer:
        raise PhoneError(FAILED, answer["warning"])
    return {"answer": answer, "text": "logging is on"}


def stop(phone, options, tell):
    tell("stops")
    answer = phone.ask("--timeout", f"{options.timeout:g}", "stop")
    return {"answer": answer, "text": "logging is off"}


def fetch_run(phone, options, tell):
    return pull(phone, options.run, options.directory, tell)


# Command: (function, arguments, seconds for each phone, help). Start and stop as long as harrowmossctl waits.
COMMANDS = {
    "start": (start, ["types"], 960, "start debug logging"),
    "stop": (stop, [], 540, "stop it; the run goes to shared storage"),
    "status": (status, [], 30, "whether they log, and how full they are"),
    "pull": (fetch_run, ["run", "directory"], 3600, "the archive of a run (name, number, latest), verified"),
}


class Board:
    """A line for each phone, rewritten in place on a terminal with room for all, else a new line for each step."""

    def __init__(self, serials, out):
        self.steps = {serial: ("", "waits") for serial in serials}
        self.out = out
        self.lock = threading.Lock()
        self.width = max(map(len, serials))
        self.live = out.isatty() and len(serials) < shutil.get_terminal_size().lines
        self.drawn = False
        self.at = 0.0

    def tell(self, serial, step, detail=""):
        with self.lock:
            new = self.steps[serial][0] != step
            self.steps[serial] = (step, detail)
            if not self.live:
                if new:
                    print(self.line(serial), file=self.out, flush=True)
            elif new or time.monotonic() - self.at > 0.2:
                self.draw()

    def line(self, serial):
        return f"{serial:{self.width}}  {' '.join(self.steps[serial])}".rstrip()

    def draw(self):
        columns = shutil.get_terminal_size().columns
        up = f"\033[{len(self.steps)}A" if self.drawn else ""
        lines = [self.line(serial)[:columns - 1] + "\033[K\n" for serial in self.steps]
        self.out.write(up + "".join(lines))
        self.out.flush()
        self.drawn, self.at = True, time.monotonic()


def serve(serial, state, options, board):
    """Runs the command on one phone; returns its row of the result."""
    began = time.monotonic()
    function = COMMANDS[options.command][0]
    grace = GRACE_S if function in (start, stop) else 0
    try:
        if state != "device":
            raise PhoneError(LOST, {None: "adb does not see it"}.get(state, f"adb says: {state}"))
        row = {"exit": DONE, **function(Phone(serial, options.timeout + grace), options,
                                        lambda *step: board.tell(serial, *step))}
    except PhoneError as error:
        row = {"exit": error.code, "text": str(error)}
    except Exception as error:  # pylint: disable=broad-except
        row = {"exit": FAILED, "text": f"{type(error).__name__}: {error}"}  # the others continue
    row = {"serial": serial, "outcome": WORDS[row["exit"]], **row, "seconds": round(time.monotonic() - began, 1)}
    board.tell(serial, row["outcome"])
    return row


def table(rows):
    width = max(len(row["serial"]) for row in rows)
    lines = [f"{'PHONE':{width}}  OUTCOME      SECONDS  "]
    lines += [f"{row['serial']:{width}}  {row['outcome']:11}  {row['seconds']:7.1f}  {row['text']}" for row in rows]
    good = sum(row["exit"] == DONE for row in rows)
    return "\n".join(line.rstrip() for line in lines) + f"\n{good} of {len(rows)} done"


def parse_options(arguments):
    about, *details = __doc__.split("\n\n", 1)
    parser = argparse.ArgumentParser(prog="fleet", description=about, epilog="".join(details),
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    commands = parser.add_subparsers(dest="command", required=True, metavar="COMMAND")
    for name, (_, positional, seconds, about) in COMMANDS.items():
        command = commands.add_parser(name, help=about, description=about)
        for argument in positional:
            command.add_argument(argument, metavar=argument.upper())
        command.add_argument("-s", nargs="+", action="extend", metavar="SERIAL", help="these phones only")
        command.add_argument("--json", action="store_true", help="one JSON object on standard output")
        command.add_argument("--timeout", type=float, default=seconds, metavar="SECONDS",
                             help=f"for each phone ({seconds})")
    return parser.parse_args(arguments)


def main(arguments):
    options = parse_options(arguments)
    signal.signal(signal.SIGTERM, signal.default_int_handler)  # cleans up partial files
    try:
        seen = devices()
        serials = list(dict.fromkeys(options.s or seen))
        if not serials:
            raise PhoneError(LOST, "adb sees no phone")
    except PhoneError as error:
        print(f"fleet: {error}", file=sys.stderr)
        if options.json:
            print(json.dumps({"command": options.command, "exit": error.code, "error": str(error), "phones": []}))
        return error.code
    board = Board(serials, sys.stderr)
    with concurrent.futures.ThreadPoolExecutor(len(serials)) as pool:
        try:
            rows = list(pool.map(lambda serial: serve(serial, seen.get(serial), options, board), serials))
        except KeyboardInterrupt:
            print("fleet: interrupted", file=sys.stderr)
            for phone in Phone.everyone:
                phone.give_up()
            return INTERRUPTED
    worst = max(row["exit"] for row in rows)
    print(json.dumps({"command": options.command, "exit": worst, "phones": rows}) if options.json else table(rows))
    return worst
