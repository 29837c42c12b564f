"""Cases that need none of the real programs: they use the practice agent or an agent of their own
(odd_agent.py), and change what is around Vantrell: repositories, disks, descriptors, signals."""

import json
import os
import shlex
import subprocess
import sys
from pathlib import Path

from vantrell import STEP_SECONDS, demand, wait_until

ODD_AGENT = Path(__file__).resolve().parent / "odd_agent.py"
IDENTITY = {"GIT_AUTHOR_NAME": "A", "GIT_AUTHOR_EMAIL": "a@example.invalid",
            "GIT_COMMITTER_NAME": "A", "GIT_COMMITTER_EMAIL": "a@example.invalid",
            "GIT_CONFIG_COUNT": "1", "GIT_CONFIG_KEY_0": "protocol.file.allow",
            "GIT_CONFIG_VALUE_0": "always"}


class PracticeAgent:
    """In the place of a real program; it comes with Vantrell."""

    provider = "practice"
    label = "Local"
    setting = None
    packages = ["the practice agent"]
    choice = ["--practice"]

    def is_installed(self):
        return True

    def install(self):
        pass


def perform(home, *arguments, folder=None, before=(), **options):
    """A command from beginning to end, whatever its status."""
    options = {"stdin": subprocess.DEVNULL, "capture_output": True, "text": True,
               "errors": "replace", "timeout": STEP_SECONDS} | options
    return subprocess.run([*before, home.vantrell, *arguments], cwd=folder or home.project,
                          env=home.environment, **options)


def succeeds(home, *arguments, **options):
    done = perform(home, *arguments, **options)
    demand(done.returncode == 0, f"{arguments} ended with {done.returncode}: {done.stderr}")
    return done


def refuses(home, *arguments, words="", **options):
    done = perform(home, *arguments, **options)
    demand(done.returncode in (1, 2) and words in done.stderr,
           f"{arguments} ended with {done.returncode}, not refused with '{words}': {done.stderr}")
    return done


def git(folder, *arguments):
    done = subprocess.run(["git", *arguments], cwd=folder, env=os.environ | IDENTITY,
                          capture_output=True, text=True, timeout=STEP_SECONDS)
    demand(done.returncode == 0, f"git {arguments}: {done.stderr}")
    return done.stdout


def repository(folder, files=None):
    """A repository with one commit."""
    folder.mkdir(parents=True, exist_ok=True)
    git(folder, "init", "-q", "-b", "main")
    write(folder, files or {"a": "committed\n"})
    git(folder, "add", "-A")
    git(folder, "commit", "-q", "-m", "first")


def write(folder, files):
    for name, content in files.items():
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        (folder / name).write_text(content)


def script(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text("#!/bin/sh\n" + text + "\n")
    path.chmod(0o755)


def task_of(home, prompt="SAY:hello", *options):
    return home.turn(prompt, *options).task


def texts(home, task, kind=None):
    return [entry["text"] for entry in home.stored(task)["entries"] if kind in (None, entry["kind"])]


def checkpoint(home, task, **options):
    """Takes one and returns its ID."""
    succeeds(home, "checkpoint", "make", task, "mine", **options)
    listed = succeeds(home, "checkpoint", "list", task).stdout
    return next(line.split()[0] for line in listed.splitlines() if "mine" in line)


def restore(home, task, identifier, **options):
    return perform(home, "checkpoint", "restore", task, identifier, "--yes", **options)


def isolated(home, task):
    succeeds(home, "isolate", task)
    return Path(home.stored(task)["isolatedWorkspacePath"])


def odd_agent(home, provider, setting):
    """Makes odd_agent.py the program of a provider; returns the file of the prompts it gets."""
    prompts = home.folder / f"{provider}.prompts"
    script(home.folder / provider, f"exec {shlex.join([sys.executable, str(ODD_AGENT)])} "
                                   f"{provider} {shlex.quote(str(prompts))}")
    succeeds(home, "settings", setting, str(home.folder / provider))
    return prompts


def odd_kimi(home):
    return odd_agent(home, "kimi", "kimi-path")


def odd_glm(home):
    return odd_agent(home, "glm", "opencode-path")


def odd_turn(home, prompt, *options, status=0, provider="kimi"):
    run = home.begin("run", "--json", "--provider", provider, *options, "--", prompt)
    run.ends(status)
    return run


def prompts_of(path):
    return [json.loads(line) for line in path.read_text().splitlines()] if path.exists() else []


def without_rights():
    """In front of a command: what lets root write into read-only folders is dropped."""
    rights = "-dac_override,-dac_read_search"
    return ["setpriv", f"--bounding-set={rights}", f"--inh-caps={rights}"] if not os.geteuid() else []
