"""The built Vantrell in a home of its own, as the cases drive it: through its terminal front door."""

import json
import os
import queue
import shutil
import signal
import subprocess
import threading
import time

STEP_SECONDS = 90  # for anything that is waited for; the machine may be busy
CASE_SECONDS = 240  # for all of a case
END_SECONDS = 6  # in which all processes of a home are gone


class Failure(Exception):
    pass


def demand(holds, text):
    if not holds:
        raise Failure(text)


def wait_until(condition, seconds):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.05)
    return True


class Home:
    """A home for Vantrell and one agent program, and a project to work in."""

    def __init__(self, folder, program, vantrell, port):
        self.folder = folder
        self.program = program
        self.vantrell = vantrell
        self.project = folder / "project"
        self.project.mkdir(parents=True)
        self.outside = folder / "outside"
        self.outside.mkdir()
        self.runs = []
        self.deadline = time.monotonic() + CASE_SECONDS
        self.environment = {
            "PATH": os.environ["PATH"],
            "LANG": "C.UTF-8",
            "HOME": str(folder),
            "XDG_DATA_HOME": str(folder / "data"),
            "XDG_CONFIG_HOME": str(folder / "config"),
            "XDG_STATE_HOME": str(folder / "state"),
            "IS_SANDBOX": "1",  # as root, Claude Code starts in no freer mode without it
        }
        # Vantrell looks into these two homes as well, which are not in its own.
        agents = {"KIMI_CODE_HOME": "kimi/agent-home/.kimi-code",
                  "OPENCODE_CONFIG": "glm/agent-home/.config/opencode/opencode.json"}
        self.environment |= {name: str(folder / path) for name, path in agents.items()}
        self.port = port
        self.agent_home = folder / program.provider / "agent-home"
        self.add(program)

    def add(self, program):
        """Tells Vantrell of one more program."""
        program.install()
        if not program.setting:
            return  # the practice agent is known already
        starter = program.home(self.folder / program.provider, self.port)
        self.command("settings", program.setting, str(starter))

    def command(self, *arguments, status=0):
        done = subprocess.run([self.vantrell, *arguments], cwd=self.project, env=self.environment,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True,
                              timeout=STEP_SECONDS)
        demand(done.returncode == status,
               f"{arguments} ended with {done.returncode}: {done.stdout}{done.stderr}")
        return done.stdout

    def start(self, prompt, *options, json_lines=True, routed=False):
        """With the home's program, or with whom the route takes."""
        choice = [] if routed else self.program.choice
        format_options = ["--json"] if json_lines else []
        return self.begin("run", *choice, *format_options, *options, "--", prompt)

    def begin(self, *arguments):
        """A command that works for a while."""
        run = Run(self, arguments)
        self.runs.append(run)
        return run

    def turn(self, prompt, *options, status=0, json_lines=True, routed=False):
        """A run from beginning to end."""
        run = self.start(prompt, *options, json_lines=json_lines, routed=routed)
        run.ends(status)
        return run

    def stored(self, task):
        """The task as it is kept."""
        return json.loads(self.command("show", task, "--json"))

    def processes(self):
        """The processes with this home in their environment: Vantrell's and the agent's, and what
        these have started."""
        found = {}
        mark = str(self.folder).encode()
        for name in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open(f"/proc/{name}/environ", "rb") as environment:
                    is_ours = mark in environment.read()
                with open(f"/proc/{name}/cmdline", "rb") as command:
                    text = command.read().replace(b"\0", b" ").decode(errors="replace").strip()
            except OSError:
                continue
            if is_ours and text:  # what has ended and was not waited for has no command line
                found[int(name)] = text
        return found

    def agents(self):
        """The agent's processes, without what stands above them."""
        own = {run.process.pid for run in self.runs}

        def is_agent(pid):
            try:
                program = os.readlink(f"/proc/{pid}/exe")
            except OSError:
                return False
            return pid not in own and not program.endswith("/child-supervisor")

        return {pid: text for pid, text in self.processes().items() if is_agent(pid)}

    def leaves_no_process(self):
        demand(wait_until(lambda: not self.processes(), END_SECONDS),
               f"processes are left: {self.processes()}")

    def remove(self):
        for run in self.runs:
            run.kill()
        for pid in self.processes():
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        shutil.rmtree(self.folder, ignore_errors=True)


class Run:
    """One `vantrell run`, or a command like it, its events as they come, and its end."""

    def __init__(self, home, arguments):
        self.home = home
        self.events = []
        self.output = ""
        self.errors = ""
        self.process = subprocess.Popen(
            [home.vantrell, *arguments], cwd=home.project, env=home.environment,
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.lines = queue.Queue()
        self.readers = [threading.Thread(target=self.read, daemon=True),
                        threading.Thread(target=self.read_errors, daemon=True)]
        for reader in self.readers:
            reader.start()

    def read(self):
        for line in self.process.stdout:
            self.lines.put(line)
        self.lines.put(None)

    def read_errors(self):
        self.errors = self.process.stderr.read()

    def take(self, end):
        """The next event; None at the end of the output."""
        try:
            left = min(end, self.home.deadline) - time.monotonic()
            line = self.lines.get(timeout=max(0.01, left))
        except queue.Empty:
            raise Failure(f"nothing more came; so far: {self.summary()}") from None
        if line is None:
            return None
        self.output += line
        event = json.loads(line) if line.startswith('{"event"') else {"event": "line"}
        self.events.append(event)
        return event

    def until(self, wanted, what):
        """Reads until an event is wanted, and returns it."""
        end = time.monotonic() + STEP_SECONDS
        while event := self.take(end):
            if wanted(event):
                return event
        raise Failure(f"it ended before {what}: {self.summary()}")

    def until_text(self, text):
        return self.until(lambda _: text in self.said(), f"'{text}' was said")

    def until_tool(self):
        return self.until(lambda event: event.get("entry", {}).get("kind") == "tool", "a tool")

    def until_question(self):
        return self.until(lambda event: event["event"] == "permission", "a question")["request"]

    def answer(self, kind):
        """Answers the next question with its option of that kind."""
        question = self.until_question()
        option = next((each for each in question["options"] if each["kind"] == kind), None)
        demand(option, f"the question has no option of the kind {kind}: {question}")
        self.process.stdin.write(option["id"] + "\n")
        self.process.stdin.flush()
        return question

    def signal(self, number):
        self.process.send_signal(number)

    def ends(self, status, seconds=STEP_SECONDS):
        end = time.monotonic() + seconds
        while self.take(end):
            pass
        self.process.wait(timeout=10)
        self.readers[1].join(timeout=10)
        demand(self.process.returncode == status,
               f"it ended with {self.process.returncode}, not {status}: {self.summary()}")

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()

    # ---- what has come --------------------------------------------------------------------------

    @property
    def task(self):
        return next(event["threadID"] for event in self.events if event["event"] == "task")

    def entries(self):
        """The transcript, as a reader of the events has it."""
        entries = {}
        for event in self.events:
            if event["event"] == "transcript":
                entries = {}
            elif event["event"] == "entry":
                entries[event["entry"]["id"]] = dict(event["entry"])
            elif event["event"] == "chunk":
                entries[event["id"]]["text"] += event["text"]
        return list(entries.values())

    def of_kind(self, kind):
        return [entry for entry in self.entries() if entry["kind"] == kind]

    def said(self):
        return "\n".join(entry["text"] for entry in self.of_kind("assistant"))

    def last_run(self):
        runs = [event["run"] for event in self.events if event["event"] == "run"]
        return runs[-1] if runs else {}

    def summary(self):
        entries = [(entry["kind"], entry.get("status"), entry["text"][:200])
                   for entry in self.entries()]
        run = self.last_run()
        return (f"run {run.get('status')} ({run.get('statusMessage')}), entries {entries}, "
                f"errors: {self.errors.strip()[-600:]}")
