"""An agent that speaks the wire format of docs/wire-format.md and lies.

It stands in for the agent of a server that somebody has broken into: it listens on a
UNIX socket and answers requests. What it says to each method is a function of the
attack at hand; what an attack leaves out is answered as an honest agent would.
"""

import base64
import json
import os
import socket
import struct
import threading

HONEST_CONFIG = (
    'DISTRIBUTION="debian-12"\n'
    'HOSTNAME="alpha"\n'
    'NETIF="ifname=eth0,ip=192.0.2.77/24"\n'
    'NUMPROC="240:240"\n'
    'DISKSPACE="2000000:2200000"\n'
    'DISKINODES="200000:220000"\n'
    'SLMMODE="all"\n'
)


def honest_measurement():
    return {"numproc": 20, "hostname": "alpha", "distribution": "debian-12",
            "addresses": ["192.0.2.77"], "config": HONEST_CONFIG}


def honest_survey():
    root = {"device": "/dev/vda1", "mountPoint": "/", "type": "ext4", "options": "rw",
            "copied": True, "mounted": True, "counted": True,
            "bytes": 100 << 20, "files": 3000}
    return {"fileSystems": [root], "scanComplete": True, "systemdVersion": 252}


def text_field(value):
    raw = value if isinstance(value, bytes) else value.encode()
    return {"base64": base64.b64encode(raw).decode()}


def error(code, text):
    return {"errors": [{"code": code, "text": base64.b64encode(text.encode()).decode()}]}


class Silence(Exception):
    """Raised by an attack that does not answer."""


class LyingAgent:
    """Serves connections on `path` until closed. `lies` maps a method's name to a
    function of (agent, connection, request) that returns the answer's body."""

    def __init__(self, path, lies):
        self.lies = lies
        self.methods = []  # that were asked for
        self.problem = None
        if os.path.exists(path):
            os.unlink(path)
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(path)
        self.listener.listen(8)
        self.closing = False
        threading.Thread(target=self.accept, daemon=True).start()

    def close(self):
        self.closing = True
        self.listener.close()

    def accept(self):
        while not self.closing:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            threading.Thread(target=self.serve, args=(connection,), daemon=True).start()

    @staticmethod
    def send(connection, frame):
        raw = frame if isinstance(frame, bytes) else json.dumps(frame).encode()
        connection.sendall(struct.pack(">I", len(raw)) + raw)

    def progress(self, connection, request, text, description="", percent=-1):
        self.send(connection, {"type": "progress", "id": request["id"], "text": text,
                               "description": description, "percent": percent})

    @staticmethod
    def receive(connection):
        def exactly(count):
            got = b""
            while len(got) < count:
                part = connection.recv(min(count - len(got), 65536))
                if not part:
                    raise EOFError
                got += part
            return got
        length = struct.unpack(">I", exactly(4))[0]
        return json.loads(exactly(length))

    def serve(self, connection):
        beating = threading.Event()

        def beat():
            while not beating.wait(5):
                try:
                    self.send(connection, {"type": "beat"})
                except OSError:
                    return
        threading.Thread(target=beat, daemon=True).start()
        try:
            if "hello" in self.lies:
                self.lies["hello"](self, connection, None)
            else:
                self.send(connection, {"type": "hello", "version": 1, "eid": "liar"})
            while True:
                frame = self.receive(connection)
                if frame["type"] == "request":
                    self.request(connection, frame)
        except (EOFError, OSError):
            pass
        finally:
            beating.set()
            connection.close()

    def request(self, connection, frame):
        method = frame["method"]
        self.methods.append(method)
        lie = self.lies.get(method)
        try:
            body = lie(self, connection, frame) if lie else self.honest(method)
        except Silence:
            return
        if body is not None:
            self.send(connection, {"type": "answer", "id": frame["id"], "body": body})

    @staticmethod
    def honest(method):
        if method == "measure":
            return {"9101": text_field(json.dumps(honest_measurement()))}
        if method == "survey":
            return {"9101": text_field(json.dumps(honest_survey()))}
        if method == "getUsageDiskSpace":
            return {"1017": 100 << 20}
        if method == "dumpQuota":
            return {"1811": text_field("")}
        return {}
