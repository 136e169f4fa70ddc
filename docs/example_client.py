#!/usr/bin/env python3
"""A small client of the diagnostic log daemon, for whoever writes one in another language.

The wire format is described in docs/control-protocol.md; protocol/vectors.json holds every request
and reply byte for byte. Python 3, standard library only.

    example_client.py version
    example_client.py start 0x5
    example_client.py feedback 0x30 /sdcard/report
    example_client.py --socket PATH log-dir
    example_client.py check-vectors protocol/vectors.json
"""

import argparse
import json
import socket
import struct
import sys

SOCKET = "/dev/socket/harrowmossd"
PROTOCOL_VERSION = 1
PAYLOAD_MAX = 1023  # bytes; the daemon hangs up on anything longer
DUMP_TEXT_MAX = 1023  # characters; the daemon ends when its dump of a message is longer
REPLY_MAX = 511  # bytes; a longer reply cannot be genuine

# command: code, arguments, reply ("int", "text" or None), seconds to wait for it
REQUESTS = {
    "version": (1, [], "int", 10),
    "start": (2, ["int32"], "int", 960),
    "stop": (3, [], "int", 540),
    "feedback-start": (4, [], None, 10),
    "feedback-stop": (5, [], None, 10),
    "feedback": (6, ["int32", "string16"], "int", 120),
    "build-state": (7, [], "int", 10),
    "no-service": (8, [], "int", 10),
    "log-dir": (9, [], "text", 10),
    "system-size": (10, [], "text", 10),
    "build-id": (11, [], "text", 10),
    "delete-logs": (12, [], None, 540),
    "move-traces": (13, [], None, 540),
    "copy-traces": (14, ["string16"], "int", 120),
    "copy-kernel-log": (15, ["string16"], "int", 120),
    "boot-reason": (16, [], "text", 10),
}


class ProtocolError(Exception):
    """What came is no reply of this protocol, or the connection ended."""


def encode_argument(kind, value=""):
    """One argument as it follows the serial."""
    if kind == "int32":
        return struct.pack("<i", int(value, 0) if isinstance(value, str) else value)
    if kind == "null":
        return struct.pack("<i", -1)
    units = value.encode("utf-16-le")
    text = struct.pack("<i", len(units) // 2) + units + b"\0\0"
    return text + b"\0" * (-len(text) % 4)


def encode_request(code, serial, arguments):
    """A whole frame. `arguments` are (kind, value) pairs."""
    payload = struct.pack("<iq", code, serial)
    payload += b"".join(encode_argument(*argument) for argument in arguments)
    dump_text = sum(2 if byte < 0x10 else 3 for byte in payload)
    if len(payload) > PAYLOAD_MAX or dump_text > DUMP_TEXT_MAX:
        raise ValueError("the daemon would not survive this request: shorten the path")
    return struct.pack("<H", len(payload)) + payload


def decode_reply(payload, code, serial, kind):
    """The result: a number, a text, or None when the reply ends behind the serial."""
    if len(payload) < 12 or struct.unpack_from("<iq", payload) != (code, serial):
        raise ProtocolError("the reply belongs to another request")
    fields = payload[12:]
    if not fields:
        return None
    if kind == "text" and len(fields) >= 8:
        (length,) = struct.unpack_from("<i", fields)
        text = fields[4:]
        if length < 0 or len(text) != (length // 4 + 1) * 4 or any(text[length:]):
            raise ProtocolError("the text does not end where its length says")
        return text[:length].decode("utf-8", "replace")
    if len(fields) != 4:
        raise ProtocolError("the reply has an impossible size")
    return struct.unpack("<i", fields)[0]


class Client:
    """One connection. The daemon serves one client at a time: close it when done."""

    def __init__(self, path=SOCKET):
        self.serial = 0
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(10)
        self.socket.connect(path)
        # A daemon that serves somebody else accepts us too, and does not answer.
        version = self.ask("version")
        if version != PROTOCOL_VERSION:
            raise ProtocolError(f"the daemon speaks version {version}")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def ask(self, command, *values):
        """Sends one request and waits for its result."""
        code, kinds, reply_kind, seconds = REQUESTS[command]
        arguments = list(zip(kinds, values))
        if command == "feedback":
            arguments.append(("int32", 0))  # a number that nobody reads
        self.serial += 1
        self.socket.settimeout(seconds)
        self.socket.sendall(encode_request(code, self.serial, arguments))
        (size,) = struct.unpack("<i", self.receive(4))
        if not 12 <= size <= REPLY_MAX:
            raise ProtocolError(f"a reply of {size} bytes is announced")
        return decode_reply(self.receive(size), code, self.serial, reply_kind)

    def receive(self, count):
        data = b""
        while len(data) < count:
            piece = self.socket.recv(count - len(data))
            if not piece:
                raise ProtocolError("the daemon closed the connection")
            data += piece
        return data


def check_vectors(path):
    """Encodes every request of the vectors that a client can write. The number of wrong ones."""
    with open(path, encoding="utf-8") as file:
        document = json.load(file)
    wrong = checked = 0
    for vector in document["vectors"]:
        if "arguments" not in vector:
            continue  # malformed on purpose
        arguments = [tuple(text.split(" ", 1)) for text in vector["arguments"]]
        frame = encode_request(vector["code"], int(vector["serial"]), arguments)
        checked += 1
        if frame != bytes.fromhex(vector["request"]):
            wrong += 1
            print(f"{vector['name']}: {frame.hex()}")
    print(f"protocol {document['protocol']}: {checked} requests, {wrong} wrong")
    return wrong if document["protocol"] == PROTOCOL_VERSION else wrong + 1


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--socket", default=SOCKET)
    parser.add_argument("command", choices=[*REQUESTS, "check-vectors"])
    parser.add_argument("arguments", nargs="*")
    options = parser.parse_args()
    if options.command == "check-vectors":
        return 1 if check_vectors(*options.arguments) else 0
    if len(options.arguments) != len(REQUESTS[options.command][1]):
        parser.error(f"{options.command} wants {REQUESTS[options.command][1]}")
    try:
        with Client(options.socket) as client:
            result = client.ask(options.command, *options.arguments)
    except (OSError, ProtocolError, ValueError) as error:
        print(f"{options.command}: {error or 'no answer in time'}", file=sys.stderr)
        return 3
    print("(no result)" if result is None else result)
    return 1 if isinstance(result, int) and result < 0 else 0


if __name__ == "__main__":
    sys.exit(main())
