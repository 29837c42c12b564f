"""The client of remote control and the relay, against peers that share no code with Vantrell: hosts and
relays on python3-websockets (remote_peer.py), and hosts and clients on npm's ws (remote_relay_clients.mjs)."""

import base64
import hashlib
import json
import os
import shutil
import signal
import socket
import subprocess
from pathlib import Path

from cases import case
from practice import perform, succeeds
from programs import Unavailable, cache_folder
from vantrell import STEP_SECONDS, Failure, demand, wait_until

HERE = Path(__file__).resolve().parent
DEBIAN_PYTHON = "/usr/bin/python3"  # which has Debian's packages


def free_port():
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        return free.getsockname()[1]


class Lines:
    """A program that goes on beside Vantrell, and the objects that it prints."""

    def __init__(self, home, command):
        self.path = home.folder / f"lines-{len(os.listdir(home.folder))}"
        with self.path.open("w") as out:
            # Without the home's environment, by which a case looks for what Vantrell left.
            self.process = subprocess.Popen(command, stdout=out, stderr=subprocess.STDOUT)
        home.runs.append(self)

    def objects(self):
        lines = self.path.read_text().splitlines()
        return [json.loads(line) for line in lines if line.startswith("{") and line.endswith("}")]

    def having(self, name, *values):
        return [each for each in self.objects()
                if name in each and (not values or each[name] in values)]

    def until(self, name, count=1):
        demand(wait_until(lambda: len(self.having(name)) >= count, STEP_SECONDS),
               f"no '{name}' in {self.path.read_text()[-2000:]}")

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()


class Pair:
    """A key, its link through a relay at a port of this machine, and the relay's certificate."""

    def __init__(self, home):
        self.home = home
        self.port = free_port()
        self.url = f"wss://127.0.0.1:{self.port}/remote/connect"
        self.key = os.urandom(32)
        self.certificate = home.folder / "relay.pem"
        self.certificate_key = home.folder / "relay.key"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                        "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2", "-subj", "/CN=relay",
                        "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", self.certificate_key,
                        "-out", self.certificate], check=True, capture_output=True)
        home.environment["SSL_CERT_FILE"] = str(self.certificate)
        key = base64.urlsafe_b64encode(self.key).decode().rstrip("=")
        # Nothing listens on the first port: the direct road is refused.
        self.link = (f"vantrell://pair?host=127.0.0.1&port={free_port()}&key={key}&name=Peer"
                     f"&relay={self.url}")

    def begin_relay(self):
        relay = Path(self.home.vantrell).with_name("vantrell-relay")
        self.relay = Lines(self.home, [relay, "--listen", f"127.0.0.1:{self.port}", "--certificate",
                                       self.certificate, "--key", self.certificate_key])
        demand(wait_until(self.listens, STEP_SECONDS), "the relay does not listen")

    def listens(self):
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", self.port)) == 0

    def begin_peer(self, role, *options):
        done = subprocess.run([DEBIAN_PYTHON, "-c", "import websockets, cryptography"],
                              capture_output=True)
        if done.returncode:
            raise Failure("python3-websockets and python3-cryptography are not installed")
        command = [DEBIAN_PYTHON, HERE / "remote_peer.py", role,
                   self.url if role == "host" else str(self.port), self.certificate, self.key.hex()]
        if role == "relay":
            command.append(self.certificate_key)
        self.peer = Lines(self.home, [*map(str, command), *options])
        self.peer.until("control" if role == "host" else "listens")

    def connect(self):
        return perform(self.home, "connect", "-", stdin=None, input=self.link)

    def pair(self):
        done = self.connect()
        demand(done.returncode == 0 and "through the relay" in done.stdout,
               f"not paired: {done.stdout}{done.stderr}")
        listed = succeeds(self.home, "connect", "tasks", "--json").stdout
        self.task = json.loads(listed.splitlines()[0])["threadID"]

    def run(self, prompt, *options):
        return self.home.begin("connect", "run", "--json", "--task", self.task, *options, prompt)

    def obeyed(self, kind):
        return len(self.peer.having("obeyed", kind))

    def send_file(self, size):
        """Sends it with a prompt; the peer must have got the same bytes."""
        content = os.urandom(size)
        path = self.home.folder / "large.bin"
        path.write_bytes(content)
        run = self.run("look", "--attach", str(path))
        run.ends(0)
        demand(self.peer.having("digest", hashlib.sha256(content).hexdigest()),
               f"the file came otherwise: {self.peer.having('file')}")
        return run


def demand_ticks(run):
    """The slow answer is whole, and nothing of it was told twice."""
    demand(run.said().strip() == " ".join(f"tick {number}." for number in range(40)),
           f"it was told as: {run.said()}")
    demand(len(run.of_kind("user")) == 1, f"prompts: {run.of_kind('user')}")


@case("a host that others wrote does what a client asks through the relay", "practice")
def others_host(home):
    pair = Pair(home)
    pair.begin_relay()
    pair.begin_peer("host")
    pair.pair()
    run = pair.run("ASK")
    run.answer("allow_once")
    run.ends(0)
    demand("You said y" in run.said(), run.summary())
    pair.send_file(20 * 1024 * 1024)
    too_large = home.folder / "too-large"
    too_large.write_bytes(b"x" * (20 * 1024 * 1024 + 1))
    pair.run("look", "--attach", str(too_large)).ends(1)
    item = json.loads(succeeds(home, "connect", "media", "--json").stdout)["id"]
    succeeds(home, "connect", "media", item, "got.png")
    demand((home.project / "got.png").read_bytes() == b"0" * 1000 + b"1" * 1000 + b"2" * 1000,
           "the picture came otherwise")
    stopped = pair.run("SLOW")
    stopped.until_text("tick 2")
    stopped.signal(signal.SIGINT)
    stopped.ends(130)
    demand(pair.obeyed("prompt") == 3 and pair.obeyed("cancel") == 1, pair.peer.objects())
    succeeds(home, "connect", "forget")
    demand(perform(home, "connect", "tasks").returncode == 2, "it is paired still")


@case("a run goes on by itself after the relay was killed", "practice")
def killed_relay(home):
    pair = Pair(home)
    pair.begin_relay()
    pair.begin_peer("host")
    pair.pair()
    run = pair.run("SLOW")
    run.until_text("tick 5")
    pair.relay.kill()
    pair.begin_relay()
    run.until_text("tick 20")
    pair.relay.process.send_signal(signal.SIGTERM)
    pair.relay.process.wait(timeout=10)
    pair.begin_relay()
    run.ends(0)
    demand_ticks(run)
    demand(pair.obeyed("prompt") == 1, pair.peer.objects())


@case("a relay that others wrote: fragments, pings, closings, full messages, and one that waits",
      "practice")
def others_relay(home):
    pair = Pair(home)
    pair.begin_peer("relay", "--fragments", "--closes-first", "--largest")
    pair.pair()
    hellos = pair.peer.having("hello")
    demand(hellos[0]["hello"]["role"] == "client", hellos)
    pair.peer.kill()
    pair.begin_peer("relay", "--stops-reading", "--fragments")
    pair.pair()
    pair.send_file(20 * 1024 * 1024)
    pair.peer.kill()
    pair.begin_peer("relay", "--too-large")
    refused = pair.connect()
    demand(refused.returncode == 1 and "does not answer" in refused.stderr,
           f"{refused.returncode} {refused.stderr}")


@case("npm's ws as host and client of the relay", "practice")
def ws_peers(home):
    npm = shutil.which("npm")
    folder = cache_folder() / "ws"
    if not (folder / "node_modules/ws").is_dir():
        if not npm:
            raise Unavailable("npm is not installed")
        folder.mkdir(parents=True, exist_ok=True)
        done = subprocess.run([npm, "install", "--no-fund", "--no-audit", "--prefix", folder, "ws"],
                              capture_output=True, text=True, timeout=STEP_SECONDS)
        demand(done.returncode == 0, f"npm could not install ws: {done.stderr[-500:]}")
    pair = Pair(home)
    pair.begin_relay()
    done = subprocess.run(["node", HERE / "remote_relay_clients.mjs", folder, pair.url],
                          env=os.environ | {"NODE_EXTRA_CA_CERTS": str(pair.certificate)},
                          capture_output=True, text=True, timeout=STEP_SECONDS)
    demand(done.returncode == 0, done.stdout + done.stderr)
