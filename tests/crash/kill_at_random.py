#!/usr/bin/env python3
"""Kills Vantrell with SIGKILL at random moments and looks at what is left.

Each round starts a command (mostly a turn of the practice agent, in a new task or an old one),
kills it at a random moment, reads what had been committed from a copy of the store, and starts the
program again. Then must hold:

  - the tree that the program exports decodes;
  - no run is open, and those that had been are interrupted, the tools in them failed;
  - everything that was committed at the kill is still there, unchanged;
  - no prompt stands twice, neither as an entry nor as a run;
  - a command that had ended well before the kill has done what it said;
  - the lock of the dead process is no obstacle.

The seed is printed; the same one gives the same commands and the same moments, as far as the
machine lets them be the same.
"""

import argparse
import json
import os
import random
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ACTIVE = {"starting", "running", "waitingApproval"}
OPEN_TOOL = {"pending", "in_progress"}


class Failure(Exception):
    pass


def demand(holds, text):
    if not holds:
        raise Failure(text)


class Home:
    """A home of its own for the program, and what it leaves there."""

    def __init__(self, programs):
        self.path = Path(tempfile.mkdtemp(prefix="vantrell-crash-"))
        self.project = self.path / "project"
        self.project.mkdir()
        self.program = str(programs / "vantrell")
        self.environment = {
            "PATH": "/usr/bin:/bin",
            "HOME": str(self.path),
            "XDG_DATA_HOME": str(self.path / "data"),
            "XDG_CONFIG_HOME": str(self.path / "config"),
            "XDG_STATE_HOME": str(self.path / "state"),
        }
        # What the sanitizers' runtimes are told holds for the program under test, too.
        for name, value in os.environ.items():
            if name.endswith("SAN_OPTIONS"):
                self.environment[name] = value
        self.support = self.path / "data" / "vantrell"

    def start(self, arguments):
        return subprocess.Popen(
            [self.program, *arguments],
            cwd=self.project,
            env=self.environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
        )

    def export(self):
        """What the program itself says is there, after a start: looking alone is none."""
        store = self.support / "conversations.sqlite"
        # Killed while the store was made: the start may say so.
        was_empty = store.exists() and store.stat().st_size == 0
        for arguments in (["settings", "scale", "1.0"], ["settings", "export"]):
            done = self.start(arguments)
            output, error = done.communicate(timeout=60)
            demand(done.returncode == 0, f"the program does not start again: {error.decode()}")
            demand(not error or was_empty, f"the start had something to say: {error.decode()}")
        return json.loads(output)

    def committed(self):
        """What the store holds, read from a copy: reading it in place would mend it."""
        store = self.support / "conversations.sqlite"
        if not store.exists():
            return {}, {}
        with tempfile.TemporaryDirectory() as folder:
            for ending in ("", "-wal"):
                if Path(str(store) + ending).exists():
                    shutil.copy(str(store) + ending, Path(folder) / ("store" + ending))
            database = sqlite3.connect(Path(folder) / "store")
            try:
                tables = {name for (name,) in database.execute("SELECT name FROM sqlite_master")}
                if "entries" not in tables:
                    return {}, {}  # killed while the store was made
                entries = {
                    record["id"]: record
                    for (record,) in self.records(database, "SELECT record FROM entries")
                }
                runs = {
                    record["id"]: record
                    for (record,) in self.records(database, "SELECT record FROM runs")
                }
                return entries, runs
            finally:
                database.close()

    @staticmethod
    def records(database, query):
        for (text,) in database.execute(query):
            yield (json.loads(text),)

    def remove(self):
        shutil.rmtree(self.path, ignore_errors=True)


def threads_of(tree):
    return [thread for workspace in tree for thread in workspace["threads"]]


class Rounds:
    def __init__(self, home, random_numbers):
        self.home = home
        self.random = random_numbers
        self.number = 0
        self.usual = 0.3  # seconds that a command takes, as seen so far
        self.endings = {"before": 0, "killed": 0}

    def prompt(self):
        self.number += 1
        n = self.number
        lines = [f"SAY:answer {n}", f"THINK:thought {n}", "PLAN:one;two;three",
                 f"WRITE:file-{n % 7}.txt=content {n}", f"RUN:echo command {n}",
                 f"FLOOD:stdout={self.random.choice([100, 5000, 200000])}", "SLOW:0.01"]
        chosen = self.random.sample(lines, self.random.randint(1, 4))
        return "\n".join([f"SAY:prompt {n}", *chosen])

    def command(self, tree):
        threads = threads_of(tree)
        run = ["run", "--practice", "--json", "--answer", "allow_once"]
        kind = self.random.random()
        if kind < 0.35 or not threads:
            return [*run, self.prompt()]
        thread = self.random.choice(threads)["id"]
        if kind < 0.75:
            return [*run, "--task", thread, self.prompt()]
        return self.random.choice([
            ["rename", thread, f"Title {self.random.random()}"],
            ["pin", thread],
            ["archive", thread],
            ["archive", "--off", thread],
            ["new", "--project", str(self.home.project), f"New {self.random.random()}"],
            ["tasks"],
        ])

    def round(self, tree):
        arguments = self.command(tree)
        begun = time.monotonic()
        process = self.home.start(arguments)
        moment = self.random.random() * self.usual * 1.3
        try:
            output, error = process.communicate(timeout=moment)
            took = time.monotonic() - begun
            self.usual = 0.8 * self.usual + 0.2 * max(took, 0.05)
            self.endings["before"] += 1
        except subprocess.TimeoutExpired:
            process.send_signal(signal.SIGKILL)
            output, error = process.communicate()
            self.usual = min(2.0, self.usual * 1.03)
            self.endings["killed"] += 1
        ended_well = process.returncode == 0
        demand(process.returncode in (0, -signal.SIGKILL),
               f"{arguments} ended with {process.returncode}: {error.decode()}")

        entries, runs = self.home.committed()
        after = self.home.export()
        self.check(entries, runs, after)
        if ended_well:
            if arguments[0] == "run":
                self.check_run(arguments[-1], output, after)
            else:
                self.check_change(arguments, tree, after)
        return after

    def check(self, entries, runs, after):
        threads = threads_of(after)
        entries_after = {entry["id"]: entry for thread in threads for entry in thread["entries"]}
        runs_after = {run["id"]: run for thread in threads for run in thread["runs"]}
        for identifier, entry in entries.items():
            now = entries_after.get(identifier)
            if entry.get("status") in OPEN_TOOL:  # settled with its run
                entry = entry | {"status": "failed"}
            demand(now == entry, f"an entry was lost: {entry}")
        for identifier, run in runs.items():
            now = runs_after.get(identifier)
            demand(now is not None, f"a run was lost: {run}")
            if run["status"] in ACTIVE:
                demand(now["status"] == "interrupted", f"an open run is not interrupted: {now}")
            else:
                demand(now == run, f"a run has changed: {run} {now}")
        for run in runs_after.values():
            demand(run["status"] not in ACTIVE, f"a run is open: {run}")
        prompts = [entry["text"] for entry in entries_after.values() if entry["kind"] == "user"]
        demand(len(prompts) == len(set(prompts)), "a prompt stands twice in the transcripts")
        prompts = [run["prompt"] for run in runs_after.values()]
        demand(len(prompts) == len(set(prompts)), "a prompt has two runs")
        identifiers = [thread["id"] for thread in threads]
        demand(len(identifiers) == len(set(identifiers)), "a task stands twice")

    def check_change(self, arguments, before, after):
        """The command ended well, so what it was told to do is stored."""
        command, *words = arguments
        threads = {thread["id"]: thread for thread in threads_of(after)}
        if command == "rename":
            demand(threads[words[0]]["title"] == words[1], f"{arguments} is not stored")
        elif command == "pin":
            demand(threads[words[0]]["isPinned"], f"{arguments} is not stored")
        elif command == "archive":
            wanted = words[0] != "--off"
            demand(threads[words[-1]]["isArchived"] == wanted, f"{arguments} is not stored")
        elif command == "new":
            known = {thread["id"] for thread in threads_of(before)}
            titles = [thread["title"] for thread in threads.values()]
            demand(titles.count(words[-1]) == 1, f"{arguments} is not stored, or not once")
            demand(known <= threads.keys(), f"{arguments} took a task away")
        else:
            demand(command == "tasks", f"nobody checks what {arguments} did")

    def check_run(self, prompt, output, after):
        """The command said that it was done, so it is stored."""
        entries = {e["id"]: e for thread in threads_of(after) for e in thread["entries"]}
        runs = {r["prompt"]: r for thread in threads_of(after) for r in thread["runs"]}
        demand(runs.get(prompt, {}).get("status") == "completed",
               f"a run that was completed is not: {runs.get(prompt)}")
        told = {}
        for line in output.decode().splitlines():
            event = json.loads(line)
            if event["event"] == "transcript":
                told = {}
            elif event["event"] == "entry":
                told[event["entry"]["id"]] = event["entry"]
            elif event["event"] == "chunk":
                told[event["id"]]["text"] += event["text"]
        for identifier, entry in told.items():
            demand(entries.get(identifier) == entry, f"what was shown is not stored: {entry}")


def main():
    parser = argparse.ArgumentParser(description="Kills Vantrell at random moments.")
    parser.add_argument("--programs", required=True, type=Path, help="folder of the built programs")
    parser.add_argument("--kills", type=int, default=200)
    parser.add_argument("--seed", type=int, default=None)
    arguments = parser.parse_args()
    seed = arguments.seed if arguments.seed is not None else random.randrange(1 << 32)
    print(f"seed {seed}", flush=True)

    home = Home(arguments.programs.resolve())
    rounds = Rounds(home, random.Random(seed))
    tree = []
    try:
        while rounds.endings["killed"] < arguments.kills:
            tree = rounds.round(tree)
            total = rounds.endings["killed"]
            if arguments.kills >= 50 and total % 50 == 0 and total:
                print(f"{total} kills, {len(threads_of(tree))} tasks", flush=True)
    except Failure as failure:
        print(f"FAILED after {rounds.endings['killed']} kills: {failure}\n"
              f"The state is in {home.path}", file=sys.stderr)
        return 1
    print(f"{rounds.endings['killed']} kills, {rounds.endings['before']} commands that ended before "
          f"theirs; {len(threads_of(tree))} tasks, "
          f"{sum(len(t['entries']) for t in threads_of(tree))} entries: nothing lost")
    home.remove()
    return 0


if __name__ == "__main__":
    sys.exit(main())
