#!/usr/bin/python3
"""A host of remote control that shares no code with Vantrell: the Debian packages python3-websockets
and python3-cryptography. `host` joins a relay; `relay` is a relay with this host behind it, which
sends every message in fragments and pings in between. It prints what it obeys, a JSON object a line.

    remote_peer.py host|relay ADDRESS CERTIFICATE KEY [CERTIFICATE_KEY] [--option ...]
"""

import asyncio
import base64
import hashlib
import json
import os
import ssl
import sys
import time
import uuid

import websockets
from cryptography.hazmat.primitives.ciphers.aead import AESGCM

LARGEST = 1 << 24
FRAGMENT = 60_000


def say(**what):
    print(json.dumps(what), flush=True)


def new_id():
    return str(uuid.uuid4()).upper()


class Host:
    def __init__(self, key, options):
        self.cipher = AESGCM(key)
        self.options = options
        self.pair = base64.urlsafe_b64encode(hashlib.sha256(key).digest()[:16]).decode().rstrip("=")
        self.seen = set()
        self.files = {}
        self.tick = None
        self.socket = None
        self.item = new_id()
        self.task = {"id": new_id(), "title": "A task", "createdAt": 1, "updatedAt": 1,
                     "entries": [], "queuedPrompts": []}
        self.project = {"id": new_id(), "name": "site", "path": "/site", "threads": [self.task]}
        self.state = {
            "hostName": "peer", "generatedAt": 0, "connectionStatus": "idle",
            "connectionLabel": "", "selectedWorkspaceID": self.project["id"],
            "selectedThreadID": self.task["id"], "workspaces": [self.project],
            "permissionMode": "ask", "permissionModeLabel": "Ask", "providerMode": "automatic",
            "providerModeLabel": "Auto", "activeProviderLabel": "Peer", "providerUsages": [],
            "imagineStatus": "idle", "imagineLabel": "",
            "imagineItems": [{"id": self.item, "kind": "image", "prompt": "a fox",
                              "fileName": "fox.png", "createdAt": 1}]}

    async def send(self, **message):
        if not self.socket:
            return
        plain = json.dumps({"version": 1, "id": new_id()} | message).encode()
        if message["type"] == "snapshot" and "--largest" in self.options:
            plain += b" " * (LARGEST - 28 - len(plain))
        if message["type"] == "snapshot" and "--too-large" in self.options:
            plain += b" " * (LARGEST - 27 - len(plain))
        nonce = os.urandom(12)
        body = nonce + self.cipher.encrypt(nonce, plain, None)
        try:
            if "--fragments" in self.options:
                await self.socket.ping()
                await self.socket.send([body[at:at + FRAGMENT]
                                        for at in range(0, len(body), FRAGMENT)])
            else:
                await self.socket.send(body)
        except websockets.ConnectionClosed:
            pass

    async def tell(self):
        self.state["generatedAt"] = time.time()
        await self.send(type="snapshot", snapshot=self.state)

    def add(self, kind, text):
        self.task["entries"].append({"id": new_id(), "kind": kind, "text": text, "createdAt": 1})

    def run(self, status):
        if not status:
            self.state.pop("activities", None)
            return
        if status == "starting":
            self.run_id = new_id()
        self.state["activities"] = [{
            "id": self.run_id, "workspaceID": self.project["id"], "workspaceName": "site",
            "threadID": self.task["id"], "threadTitle": "A task", "status": status,
            "statusLabel": status, "statusMessage": status, "updatedAt": time.time()}]

    async def slow(self):
        self.add("assistant", "")
        for number in range(40):
            self.task["entries"][-1]["text"] += f"tick {number}. "
            await self.tell()
            await asyncio.sleep(0.2)
        self.run("completed")
        await self.tell()

    async def obey(self, message):
        kind = message["type"]
        if kind in ("hello", "refresh"):
            return await self.tell()
        if message["id"] not in self.seen:
            self.seen.add(message["id"])
            if kind != "attachment_chunk":
                say(obeyed=kind, text=message.get("text"))
            await self.carry_out(kind, message)
        await self.send(type="ack", acknowledgesID=message["id"])

    async def carry_out(self, kind, message):
        if kind == "prompt":
            self.add("user", message["text"])
            self.run("starting")
            if message["text"].startswith("SLOW"):
                self.run("running")
                self.tick = asyncio.create_task(self.slow())
            elif message["text"].startswith("ASK"):
                self.run("waitingApproval")
                self.state["permission"] = {
                    "requestID": 7, "title": "May I?", "detail": "rm a",
                    "options": [{"id": "y", "name": "Allow", "kind": "allow_once"},
                                {"id": "n", "name": "No", "kind": "reject_once"}]}
            else:
                self.add("assistant", "done")
                self.run("completed")
            await self.tell()
        elif kind == "permission_response":
            del self.state["permission"]
            self.add("assistant", "You said " + message["optionID"])
            self.run("completed")
            await self.tell()
        elif kind == "cancel":
            if self.tick:
                self.tick.cancel()
            self.run(None)
            await self.tell()
        elif kind == "attachment_chunk":
            chunks = self.files.setdefault(message["mediaID"], {})
            chunks[message["chunkIndex"]] = base64.b64decode(message["data"])
            if len(chunks) == message["chunkCount"]:
                whole = b"".join(chunks[at] for at in sorted(chunks))
                say(file=message["fileName"], bytes=len(whole),
                    digest=hashlib.sha256(whole).hexdigest())
                await self.send(type="attachment_ready", mediaID=message["mediaID"],
                                text=".vantrell/attachments/" + message["fileName"])
        elif kind == "media_request":
            for at in range(3):
                await self.send(type="media_chunk", mediaID=self.item, mediaKind="image",
                                chunkIndex=at, chunkCount=3, fileName="fox.png",
                                data=base64.b64encode(b"%d" % at * 1000).decode())

    async def serve(self, socket):
        """Until the connection ends."""
        self.socket = socket
        try:
            async for message in socket:
                if isinstance(message, str):
                    say(control=json.loads(message))
                else:
                    plain = self.cipher.decrypt(message[:12], message[12:], None)
                    await self.obey(json.loads(plain))
        except websockets.ConnectionClosed as end:
            say(closed=end.code)
        if self.socket is socket:
            self.socket = None


async def join(host, url, certificate):
    trusted = ssl.create_default_context(cafile=certificate)
    while True:
        try:
            async with websockets.connect(url, ssl=trusted, max_size=LARGEST) as socket:
                link = host.options[-1] if host.options[-1:] and "://" in host.options[-1] else None
                hello = {"version": 1, "role": "host", "pairID": host.pair}
                await socket.send(json.dumps(hello | ({"pairingLink": link} if link else {})))
                await host.serve(socket)
        except (OSError, websockets.WebSocketException):
            pass
        await asyncio.sleep(0.3)


async def be_relay(host, port, certificate, certificate_key):
    identity = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    identity.load_cert_chain(certificate, certificate_key)
    connections = 0

    async def serve(socket, _path=None):
        nonlocal connections
        connections += 1
        say(hello=json.loads(await socket.recv()))
        if "--closes-first" in host.options and connections == 1:
            return await socket.close(4001, "another time")
        await socket.send(["{\"type\":\"rea", "dy\",\"hostOnline\":true}"])
        if "--stops-reading" in host.options:
            await asyncio.sleep(4)
        await host.serve(socket)

    async with websockets.serve(serve, "127.0.0.1", port, ssl=identity, max_size=LARGEST,
                                max_queue=1, read_limit=1 << 14, ping_interval=1):
        say(listens=port)
        await asyncio.Future()


def main():
    role, address, certificate, key, *rest = sys.argv[1:]
    host = Host(bytes.fromhex(key), rest)
    work = (join(host, address, certificate) if role == "host"
            else be_relay(host, int(address), certificate, rest[0]))
    asyncio.run(work)


main()
