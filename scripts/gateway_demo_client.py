#!/usr/bin/env python3
"""A small client of zolo-media-gateway with only Python's standard library: connects,
authenticates (challenge-response), makes a few requests, puts a layout on air and prints
the events that follow.

    gateway_demo_client.py PORT [PASSWORD] [LAYOUT_ID]
"""
import base64
import hashlib
import json
import os
import socket
import struct
import sys
import time


def sha256_base64(text):
    return base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()


class Connection:
    def __init__(self, port):
        self.sock = socket.create_connection(("127.0.0.1", port), timeout=10)
        key = base64.b64encode(os.urandom(16)).decode()
        self.sock.sendall(
            ("GET /ws HTTP/1.1\r\nHost: 127.0.0.1:%d\r\nUpgrade: websocket\r\n"
             "Connection: Upgrade\r\nSec-WebSocket-Key: %s\r\n"
             "Sec-WebSocket-Version: 13\r\n\r\n" % (port, key)).encode())
        self.buffer = b""
        while b"\r\n\r\n" not in self.buffer:
            self.buffer += self.sock.recv(4096)
        head, self.buffer = self.buffer.split(b"\r\n\r\n", 1)
        if b" 101 " not in head.split(b"\r\n")[0]:
            raise SystemExit("upgrade refused: %s" % head.decode(errors="replace"))

    def send(self, op, d):
        payload = json.dumps({"op": op, "d": d}).encode()
        mask = os.urandom(4)
        header = bytes([0x81])
        if len(payload) < 126:
            header += bytes([0x80 | len(payload)])
        elif len(payload) < 65536:
            header += bytes([0x80 | 126]) + struct.pack("!H", len(payload))
        else:
            header += bytes([0x80 | 127]) + struct.pack("!Q", len(payload))
        masked = bytes(b ^ mask[i % 4] for i, b in enumerate(payload))
        self.sock.sendall(header + mask + masked)

    def _read(self, n):
        while len(self.buffer) < n:
            chunk = self.sock.recv(65536)
            if not chunk:
                raise EOFError("connection closed")
            self.buffer += chunk
        data, self.buffer = self.buffer[:n], self.buffer[n:]
        return data

    def receive(self):
        """The next message as a dict; raises EOFError with the close code on a close frame."""
        while True:
            first, second = self._read(2)
            length = second & 0x7F
            if length == 126:
                length = struct.unpack("!H", self._read(2))[0]
            elif length == 127:
                length = struct.unpack("!Q", self._read(8))[0]
            payload = self._read(length)
            opcode = first & 0x0F
            if opcode == 8:
                code = struct.unpack("!H", payload[:2])[0] if len(payload) >= 2 else 0
                raise EOFError("closed by the gateway: %d %s" % (code, payload[2:].decode()))
            if opcode == 1:
                return json.loads(payload)


def main():
    port = int(sys.argv[1])
    password = sys.argv[2] if len(sys.argv) > 2 else ""
    layout = int(sys.argv[3]) if len(sys.argv) > 3 else 2
    ws = Connection(port)
    hello = ws.receive()["d"]
    print("hello: server %s, library %s, protocol %d" %
          (hello["serverVersion"], hello["libraryVersion"], hello["protocolVersion"]))
    identify = {"protocolVersion": 1,
                "subscriptions": {"events": ["mixer", "streams", "audio_level"],
                                  "filters": {"audio_level": ["xlr-in1"]},
                                  "rates": {"audio_level": 2}}}
    auth = hello.get("authentication")
    if auth:
        secret = sha256_base64(password + auth["salt"])
        identify["authentication"] = sha256_base64(secret + auth["challenge"])
        print("authenticating with the password's challenge answer")
    ws.send(1, identify)
    print("identified: protocol %d" % ws.receive()["d"]["negotiatedProtocolVersion"])

    pending = {}

    def request(kind, data=None):
        request_id = str(len(pending) + 1)
        pending[request_id] = kind
        ws.send(6, {"requestType": kind, "requestId": request_id, "requestData": data or {}})
        while True:
            message = ws.receive()
            if message["op"] == 7 and message["d"]["requestId"] == request_id:
                return message["d"]
            if message["op"] == 5:
                show_event(message["d"])

    def show_event(d):
        print("  event %-20s %s" % (d["eventType"], json.dumps(d["eventData"])[:100]))

    requests = request("get_request_list")["responseData"]["requests"]
    print("the gateway serves %d requests" % len(requests))
    for kind, data in (("get_state", None), ("get_setting", {"name": "storage"}),
                       ("get_setting", {"name": "no_such_setting"})):
        d = request(kind, data)
        status = d["requestStatus"]
        print("%-12s %-32s -> %s %d %s %s" % (
            kind, json.dumps(data or {}), "ok" if status["result"] else "failed",
            status["code"], status["comment"], json.dumps(d.get("responseData", {}))[:80]))
    print("putting layout %d on air (set_video_layout), then 3 s of events:" % layout)
    d = request("set_video_layout", {"id": layout})
    print("set_video_layout -> code %d %s" % (d["requestStatus"]["code"],
                                               d["requestStatus"]["comment"]))
    ws.sock.settimeout(0.5)
    end = time.time() + 3
    while time.time() < end:
        try:
            message = ws.receive()
        except socket.timeout:
            continue
        if message["op"] == 5:
            show_event(message["d"])
    ws.send(8, {"requestId": "batch", "haltOnFailure": True,
                "requests": [{"requestType": "get_state"},
                             {"requestType": "get_video_layout", "requestData": {}}]})
    ws.sock.settimeout(5)
    while True:
        message = ws.receive()
        if message["op"] == 9:
            for result in message["d"]["results"]:
                print("batch: %-18s -> %s" % (result["requestType"],
                                               json.dumps(result.get("responseData", {}))[:90]))
            break


if __name__ == "__main__":
    main()
