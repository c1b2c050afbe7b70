#!/usr/bin/env python3
"""An RTMP server that takes one publish, notes when each message is complete, and forgets it.

    bench/sink.py REPORT [--tls CERTIFICATE KEY]

Prints its address, serves one publisher after the other until it is ended, and writes for each one
a line of JSON to REPORT: when its first media byte came ("first", seconds of CLOCK_MONOTONIC), the
bytes received ("wire"), those of media message bodies ("payload"), and for every video and audio
message [type, length, seconds of CLOCK_MONOTONIC].

Like common servers it leaves Nagle's algorithm on and answers in several writes, so that a
publisher that acknowledges late is seen to wait.
"""
import json
import os
import socket
import ssl
import struct
import sys
import time

HANDSHAKE = 1536
AUDIO, VIDEO, COMMAND, CHUNK_SIZE = 8, 9, 20, 1


class Stream:
    """Bytes of a connection, with the time at which the last of them came."""

    def __init__(self, connection):
        self.connection = connection
        self.data = b""
        self.at = 0
        self.time = 0.0
        self.total = 0

    def need(self, size):
        while len(self.data) - self.at < size:
            got = self.connection.recv(262144)
            self.time = time.monotonic()
            if not got:
                raise EOFError
            self.total += len(got)
            self.data = self.data[self.at:] + got
            self.at = 0

    def take(self, size):
        self.need(size)
        self.at += size
        return self.data[self.at - size:self.at]

    def pass_over(self, size):
        self.need(size)
        self.at += size


def amf(*values):
    out = b""
    for value in values:
        if value is None:
            out += b"\x05"
        elif isinstance(value, str):
            out += b"\x02" + struct.pack(">H", len(value)) + value.encode()
        elif isinstance(value, dict):
            pairs = b"".join(struct.pack(">H", len(k)) + k.encode() + amf(v) for k, v in value.items())
            out += b"\x03" + pairs + b"\x00\x00\x09"
        else:
            out += b"\x00" + struct.pack(">d", value)
    return out


def message(channel, kind, body, stream=0):
    header = bytes([channel]) + b"\0\0\0" + struct.pack(">I", len(body))[1:] + bytes([kind])
    header += struct.pack("<I", stream)
    out = header + body[:128]
    for start in range(128, len(body), 128):
        out += bytes([0xC0 | channel]) + body[start:start + 128]
    return out


def answer(connection, body):
    name = body[3:3 + body[2]].decode()
    number = struct.unpack(">d", body[4 + body[2]:12 + body[2]])[0]
    if name == "connect":
        connection.sendall(message(2, 5, struct.pack(">I", 5000000)))
        connection.sendall(message(2, 6, struct.pack(">IB", 5000000, 2)))
        info = {"level": "status", "code": "NetConnection.Connect.Success"}
        connection.sendall(message(3, COMMAND, amf("_result", number, {"fmsVer": "FMS/3,0"}, info)))
    elif name == "createStream":
        connection.sendall(message(3, COMMAND, amf("_result", number, None, 1)))
    elif name == "publish":
        info = {"level": "status", "code": "NetStream.Publish.Start"}
        connection.sendall(message(5, COMMAND, amf("onStatus", 0, None, info), 1))


def serve(connection, record):
    stream = Stream(connection)
    hello = stream.take(1 + HANDSHAKE)
    connection.sendall(b"\x03" + b"\0" * 8 + os.urandom(HANDSHAKE - 8) + hello[1:])
    stream.pass_over(HANDSHAKE)
    chunk, channels = 128, {}
    try:
        while True:
            start = stream.take(1)[0]
            form, channel = start >> 6, start & 0x3F
            if channel == 0:
                channel = 64 + stream.take(1)[0]
            state = channels.setdefault(channel, {"size": 0, "kind": 0, "body": None, "got": 0,
                                                  "long": False, "time": 0, "step": 0})
            if form < 3:
                header = stream.take((11, 7, 3)[form])
                state["long"] = header[:3] == b"\xff\xff\xff"
                state["step"] = int.from_bytes(header[:3], "big")
                if form < 2:
                    state["size"] = int.from_bytes(header[3:6], "big")
                    state["kind"] = header[6]
            if state["long"]:
                state["step"] = int.from_bytes(stream.take(4), "big")
            kind = state["kind"]
            if state["got"] == 0:
                state["body"] = b""
                state["time"] = state["step"] + (state["time"] if form else 0)
                if kind in (AUDIO, VIDEO) and "first" not in record:
                    stream.need(1)
                    record["first"] = stream.time
            part = min(chunk, state["size"] - state["got"])
            if kind == VIDEO and "pictures" in record and state["got"] == 0:
                stream.need(part)
                state["body"] = stream.data[stream.at:stream.at + min(part, 2)]
            if kind in (AUDIO, VIDEO) and "media" not in record:
                stream.pass_over(part)
            else:
                state["body"] += stream.take(part)
            state["got"] += part
            if state["got"] < state["size"]:
                continue
            state["got"] = 0
            if kind in (AUDIO, VIDEO):
                record["payload"] += state["size"]
                record["messages"].append((kind, state["size"], stream.time))
                if "media" in record:
                    record["media"].append((stream.time, kind, state["time"], state["body"]))
                if kind == VIDEO and "pictures" in record and state["body"][1:] == b"\x01":
                    key = state["body"][0] == 0x17
                    record["pictures"].append((stream.time, state["time"], key))
            elif kind == CHUNK_SIZE:
                chunk = int.from_bytes(state["body"], "big")
            elif kind == COMMAND:
                answer(connection, state["body"])
    except (EOFError, ConnectionError, ssl.SSLError):
        record["wire"] = stream.total


def main():
    listener = socket.create_server(("127.0.0.1", 0))
    secure = None
    if "--tls" in sys.argv:
        secure = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        secure.load_cert_chain(*sys.argv[sys.argv.index("--tls") + 1:][:2])
    scheme = "rtmps" if secure else "rtmp"
    print(f"{scheme}://127.0.0.1:{listener.getsockname()[1]}/live", flush=True)
    while True:
        connection, _ = listener.accept()
        record = {"payload": 0, "wire": 0, "messages": []}
        try:
            if secure:
                connection = secure.wrap_socket(connection, server_side=True)
            serve(connection, record)
        except (OSError, EOFError) as error:
            record["error"] = str(error)
        connection.close()
        with open(sys.argv[1], "a", encoding="ascii") as report:
            report.write(json.dumps(record) + "\n")


if __name__ == "__main__":
    main()
