"""What the real programs leave behind, take along to a worktree, and keep to themselves."""

import base64
import os
import signal
import socket

from cases import agent_process, case, demand_run, demand_settled
from practice import isolated, repository
from programs import PROGRAMS
from vantrell import END_SECONDS, STEP_SECONDS, demand, wait_until

PIXEL = ("iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNkYPhfDwAChwGA60e6kgAAAABJRU5E"
         "rkJggg==")


@case("a command ends with its agent and with Vantrell, in every ending")
def command_ends(home):
    def sleeps():
        return {pid: text for pid, text in home.processes().items() if "sleep 317" in text}

    endings = {
        "a kill of Vantrell": lambda run: run.kill(),
        "a kill of the agent": lambda run: os.kill(agent_process(home), signal.SIGKILL),
        "SIGTERM": lambda run: run.signal(signal.SIGTERM),
        "SIGHUP": lambda run: run.signal(signal.SIGHUP),
    }
    for name, end in endings.items():
        begun = home.project / "begun.txt"
        begun.unlink(missing_ok=True)
        run = home.start("RUN:touch begun.txt; sleep 317", "--answer", "allow_once")
        demand(wait_until(begun.exists, STEP_SECONDS), f"the command did not begin: {run.summary()}")
        end(run)
        run.process.wait(STEP_SECONDS)
        demand(wait_until(lambda: not sleeps(), END_SECONDS), f"after {name} it is left: {sleeps()}")


@case("a task that moves to a worktree goes on there")
def moves_to_worktree(home):
    repository(home.project)
    task = home.turn("SAY:the word is heron").task
    path = isolated(home, task)
    run = home.start("RUN:pwd > where.txt", "--answer", "allow_once", "--task", task)
    run.ends(0)
    demand((path / "where.txt").exists() and not (home.project / "where.txt").exists(),
           f"it worked elsewhere: {run.summary()}")
    demand_settled(home, task)


@case("an image that was looked at is no failure", "codex")
def looks_at_image(home):
    (home.project / "pixel.png").write_bytes(base64.b64decode(PIXEL))
    run = home.turn(f"LOOK:{home.project}/pixel.png")
    statuses = [entry["status"] for entry in home.stored(run.task)["entries"]
                if entry["kind"] == "tool"]
    demand(statuses == ["completed"], f"{statuses}: {run.summary()}")


@case("a web search that succeeded is no failure", "codex")
def searches_the_web(home):
    run = home.turn("SEARCH:herons")
    tools = [(entry["title"], entry["status"]) for entry in home.stored(run.task)["entries"]
             if entry["kind"] == "tool"]
    demand(tools == [("Search the web", "completed")], f"{tools}: {run.summary()}")


@case("an agent without a network says what it waits for", "codex")
def without_network(home):
    with socket.socket() as closed:
        closed.bind(("127.0.0.1", 0))
        starter = home.program.home(home.folder / "unreachable", closed.getsockname()[1])
    home.command("settings", home.program.setting, str(starter))
    run = home.start("SAY:hello")
    run.until(lambda event: "onnect" in str(event.get("run", {}).get("statusMessage")) and
              "Connecting" not in str(event["run"]["statusMessage"]), "it said what it waits for")
    run.signal(signal.SIGINT)
    run.process.wait(STEP_SECONDS)


@case("a limit that is kept to itself after a hand-off is a failure", "codex")
def swallowed_after_handoff(home):
    home.add(PROGRAMS["kimi"])
    run = home.start("LIMIT", routed=True)
    run.ends(1, 150)
    demand_run(run, "failed", "usage limit")
