#!/usr/bin/env python3
"""Drives the built Vantrell against the real programs that it works with, the model behind them
being a stand-in on this machine. `./test real` builds Vantrell and starts this.

Each case has a home of its own; several go on at a time, since most of a case is waiting.
"""

import argparse
import concurrent.futures
import os
import shutil
import sys
import tempfile
import threading
import time
import traceback
from pathlib import Path

import edge_cases  # adds its cases, as do the next ones
import ending_cases
import gateway_caller_cases
import git_cases
import remote_cases
import serve_cases
import turn_cases
from cases import CASES
from model_server import ModelServer
from practice import PracticeAgent
from programs import PROGRAMS, Unavailable, cache_folder
from vantrell import Failure, Home

TOTAL_SECONDS = 900  # of all cases; what does not fit has failed

PROGRAMS = PROGRAMS | {"practice": PracticeAgent()}


class Runner:
    def __init__(self, arguments, folder):
        self.vantrell = str(arguments.programs.resolve() / "vantrell")
        self.folder = folder
        self.keep = arguments.keep
        self.server = ModelServer()
        self.printing = threading.Lock()
        self.failed = []
        self.passed = 0
        self.unavailable = {}
        self.homes = {}
        self.end = None

    def install(self, providers):
        for provider in providers:
            program = PROGRAMS[provider]
            if not program.is_installed():
                self.say(f"Installing {', '.join(program.packages)} ...")
            try:
                program.install()
            except Unavailable as problem:
                self.unavailable[provider] = str(problem)

    def say(self, text):
        with self.printing:
            print(text, flush=True)

    def perform(self, number, provider, name, function):
        begun = time.monotonic()
        problem = self.unavailable.get(provider)
        if problem:
            problem = f"{PROGRAMS[provider].packages[0]} is not there: {problem}"
        elif begun > self.end:
            problem = "there was no time left for it"
        else:
            home = None
            try:
                home = Home(self.folder / f"{number:03}", PROGRAMS[provider], self.vantrell,
                            self.server.port)
                self.homes[number] = home
                function(home)
                home.leaves_no_process()
            except Failure as failure:
                problem = str(failure)
            except Exception:  # a fault of the case is a failure like any other
                problem = traceback.format_exc(limit=-3)
            finally:
                self.homes.pop(number, None)
                if home and not (problem and self.keep):
                    home.remove()
        took = time.monotonic() - begun
        with self.printing:
            if problem:
                self.failed.append((provider, name))
                print(f"FAILED  {provider}: {name} ({took:.1f} s)\n        {problem}", flush=True)
            else:
                self.passed += 1
                print(f"passed  {provider}: {name} ({took:.1f} s)", flush=True)

    def stop(self):
        """What has not begun does not begin, and what runs ends soon."""
        self.end = 0
        for home in list(self.homes.values()):
            home.deadline = 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--programs", type=Path, required=True, help="folder of the built programs")
    parser.add_argument("--only", default="", help="only cases whose provider or name holds this")
    parser.add_argument("--jobs", type=int, default=(os.cpu_count() or 2) + 1)
    parser.add_argument("--keep", action="store_true", help="keep the homes of failed cases")
    arguments = parser.parse_args()

    chosen = [each for each in CASES if arguments.only in f"{each[0]}: {each[1]}"]
    if not chosen:
        sys.exit(f"No case is named like '{arguments.only}'.")
    # Not below /tmp, where Codex lets a command write without a question, nor in a checkout, where
    # Kimi Code writes files without one.
    cache_folder().mkdir(parents=True, exist_ok=True)
    folder = Path(tempfile.mkdtemp(prefix="run-", dir=cache_folder()))
    runner = Runner(arguments, folder)
    begun = time.monotonic()
    try:
        runner.install(dict.fromkeys(provider for provider, _, _ in chosen))
        # The ones with the longest waits first.
        chosen.sort(key=lambda each: not (each[0] == "glm" and "fails the run" in each[1]))
        with concurrent.futures.ThreadPoolExecutor(arguments.jobs) as pool:
            runner.end = time.monotonic() + TOTAL_SECONDS
            waiting = [pool.submit(runner.perform, number, *each)
                       for number, each in enumerate(chosen)]
            try:
                concurrent.futures.wait(waiting)
            except KeyboardInterrupt:
                runner.stop()
    finally:
        if not arguments.keep:
            shutil.rmtree(folder, ignore_errors=True)
    print(f"\n{time.monotonic() - begun:.0f} seconds")
    for provider, name in runner.failed:
        print(f"failed: {provider}: {name}")
    print(f"{runner.passed} passed, {len(runner.failed)} failed")
    return 1 if runner.failed else 0


if __name__ == "__main__":
    sys.exit(main())
