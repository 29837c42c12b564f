"""What must hold with each of the real programs. A case gets a home of its own."""

import json
import os
import shutil
import signal
import subprocess
from pathlib import Path

from model_server import USED_PERCENT
from programs import PROGRAMS
from vantrell import END_SECONDS, STEP_SECONDS, demand, wait_until

OPEN = {"pending", "in_progress"}

CASES = []  # (provider, name, function)


def case(name, *providers):
    """The function below is a case of these providers, or of all four."""

    def add(function):
        for provider in providers or ("codex", "claude", "glm", "kimi"):
            CASES.append((provider, name, function))
        return function

    return add


# ---- what many cases demand ---------------------------------------------------------------------


def demand_run(run, status, text=None):
    last = run.last_run()
    demand(last["status"] == status and (text is None or text in last["statusMessage"]),
           f"the run should be {status} ({text}): {run.summary()}")


def demand_settled(home, task):
    """Nothing in the stored transcript is still under way."""
    stored = home.stored(task)
    still = [entry for entry in stored["entries"] if entry.get("status") in OPEN]
    demand(not still, f"tools are still under way: {still}")
    demand(all(run["status"] not in ("starting", "running", "waitingApproval")
               for run in stored["runs"]), f"a run is still open: {stored['runs']}")
    return stored


def tool_statuses(run):
    return [entry["status"] for entry in run.of_kind("tool")]


def work_of(home, what):
    """A prompt that the agent must ask for, and the file that it makes."""
    if what == "command":
        return "RUN:printf made > made.txt", home.project / "made.txt"
    # Codex edits files of its project without a question.
    path = (home.outside if home.program.provider == "codex" else home.project) / "written.txt"
    return f"WRITE:{path}=made", path


def agent_process(home):
    """The agent itself: of its processes the one that was started first."""
    agents = home.agents()
    demand(agents, "no agent is running")
    return min(agents)


# ---- turns --------------------------------------------------------------------------------------


@case("a turn streams its answer, once")
def turn(home):
    run = home.turn("SAY:the größer quick brown fox 🦊 jumps over the lazy dog")
    demand(run.said() == "the größer quick brown fox 🦊 jumps over the lazy dog", run.summary())
    chunks = [event for event in run.events if event["event"] == "chunk"]
    demand(len(chunks) >= 2, f"it came in {len(chunks)} chunks: {run.summary()}")
    demand_run(run, "completed", f"{home.program.label} finished the task.")
    stored = demand_settled(home, run.task)
    demand([(entry["kind"], entry["text"]) for entry in stored["entries"]] ==
           [("user", "SAY:the größer quick brown fox 🦊 jumps over the lazy dog"), ("assistant", run.said())],
           f"the stored transcript differs: {stored['entries']}")
    demand(stored["providerSessionIDs"].get(home.program.provider), "no session was stored")


@case("a command runs once it is allowed")
def command_allowed(home):
    prompt, made = work_of(home, "command")
    run = home.start(prompt)
    question = run.answer("allow_once")
    demand("made.txt" in question["detail"], f"the question does not show it: {question}")
    run.ends(0)
    demand(made.is_file() and made.read_text() == "made", f"not made: {run.summary()}")
    demand(tool_statuses(run) == ["completed"] and "DONE:" in run.said(), run.summary())
    demand_run(run, "completed")
    demand_settled(home, run.task)


@case("a command that is refused does not run")
def command_refused(home):
    prompt, made = work_of(home, "command")
    run = home.start(prompt)
    run.answer("reject_once")
    run.ends(0)
    demand(not made.exists(), "the command has run")
    demand(tool_statuses(run) == ["failed"], run.summary())
    demand_run(run, "completed")
    demand_settled(home, run.task)


@case("a file is written once it is allowed")
def file_allowed(home):
    prompt, made = work_of(home, "file")
    run = home.start(prompt)
    run.answer("allow_once")
    run.ends(0)
    demand(made.is_file() and made.read_text().strip() == "made", f"not made: {run.summary()}")
    demand(tool_statuses(run) == ["completed"], run.summary())


@case("a file that is refused is not written")
def file_refused(home):
    prompt, made = work_of(home, "file")
    run = home.start(prompt)
    run.answer("reject_once")
    run.ends(0)
    demand(not made.exists(), "the file was written")
    demand(tool_statuses(run) == ["failed"], run.summary())
    demand_settled(home, run.task)


@case("a file of the project is written without a question", "codex")
def file_in_project(home):
    run = home.turn("WRITE:written.txt=made")
    demand((home.project / "written.txt").read_text().strip() == "made", run.summary())
    demand("written.txt" in run.of_kind("tool")[0]["text"], run.summary())


@case("two questions of one answer come one after the other")
def two_questions(home):
    run = home.start("BOTH:printf one > one.txt;printf two > two.txt")
    first = run.answer("allow_once")
    second = run.answer("allow_once")
    run.ends(0)
    demand(first["id"] != second["id"], f"the same question came twice: {first}")
    demand((home.project / "one.txt").exists() and (home.project / "two.txt").exists(),
           f"both were allowed: {run.summary()}")
    demand(tool_statuses(run) == ["completed"] * 2, run.summary())


# ---- stopping -----------------------------------------------------------------------------------


@case("Ctrl-C stops a turn, which is no failure")
def cancel(home):
    run = home.start("SLOW:0.2")
    run.until_text("tick 2")
    run.signal(signal.SIGINT)
    run.ends(130)
    demand_run(run, "cancelled", "Stopped by you.")
    demand([entry["text"] for entry in run.of_kind("system")] == ["Stopped by you."], run.summary())
    demand_settled(home, run.task)


@case("SIGTERM ends the turn and the agent at once")
def terminated(home):
    run = home.start("SLOW:0.2")
    run.until_text("tick 2")
    run.signal(signal.SIGTERM)
    run.ends(143)
    demand_settled(home, run.task)


@case("Ctrl-C at a question withdraws it")
def cancel_at_question(home):
    prompt, made = work_of(home, "command")
    run = home.start(prompt)
    run.until_question()
    run.signal(signal.SIGINT)
    run.ends(130)
    demand(not made.exists(), "the command has run")
    demand_run(run, "cancelled", "Stopped by you.")
    demand_settled(home, run.task)


@case("Ctrl-C while a command runs ends it and its entry")
def cancel_in_command(home):
    run = home.start("RUN:touch begun.txt; sleep 300", "--answer", "allow_once")
    run.until_question()
    demand(wait_until(lambda: (home.project / "begun.txt").exists(), STEP_SECONDS),
           "the command did not begin")
    run.signal(signal.SIGINT)
    run.ends(130)
    demand_run(run, "cancelled")
    demand_settled(home, run.task)
    demand(wait_until(lambda: not any("sleep 300" in text for text in home.processes().values()),
                      END_SECONDS),
           f"the command is still there: {home.processes()}")


@case("no question is asked or answered behind a Ctrl-C")
def cancel_before_question(home):
    run = home.start("SLOW:0.01\nRUN:printf made > made.txt", "--answer", "allow_once")
    run.until_text("tick 95")
    run.signal(signal.SIGINT)
    run.ends(130)
    questions = [event for event in run.events if event["event"] == "permission"]
    demand(not questions, f"it asked behind the end: {questions}")
    demand(not (home.project / "made.txt").exists(), "the command has run")
    demand_settled(home, run.task)


# ---- sessions -----------------------------------------------------------------------------------


@case("a second process goes on with the session")
def resume(home):
    first = home.turn("SAY:the word is heron")
    second = home.turn("RECALL", "--task", first.task)
    demand(second.said().split("\n")[-1] == "RECALLED: SAY:the word is heron", second.summary())
    stored = demand_settled(home, first.task)
    demand([(entry["kind"], entry["text"]) for entry in stored["entries"]] ==
           [("user", "SAY:the word is heron"), ("assistant", "the word is heron"),
            ("user", "RECALL"), ("assistant", "RECALLED: SAY:the word is heron")],
           f"the transcript is not that of two turns: {stored['entries']}")


@case("a session with a tool comes back as it was")
def resume_with_tool(home):
    prompt, made = work_of(home, "command")
    first = home.start(prompt)
    first.answer("allow_once")
    first.ends(0)
    second = home.turn("SAY:on we go", "--task", first.task)
    kinds = [(entry["kind"], entry.get("status"))
             for entry in demand_settled(home, first.task)["entries"]]
    demand(kinds == [("user", None), ("tool", "completed"), ("assistant", None), ("user", None),
                     ("assistant", None)], f"it came back as {kinds}: {second.summary()}")


@case("a turn that was stopped is no obstacle to the next")
def resume_after_cancel(home):
    run = home.start("SLOW:0.2")
    run.until_text("tick 1")
    run.signal(signal.SIGINT)
    run.ends(130)
    second = home.turn("SAY:on we go", "--task", run.task)
    demand("on we go" in second.said(), second.summary())
    demand_run(second, "completed")


@case("a session that is lost is told once, then a new one begins", "claude")
def lost_session(home):
    first = home.turn("SAY:the word is heron")
    shutil.rmtree(home.agent_home / ".claude/projects")
    second = home.turn("SAY:second", "--task", first.task, status=1)
    demand_run(second, "failed", "No conversation found")
    third = home.turn("SAY:third", "--task", first.task)
    demand("third" in third.said(), third.summary())


@case("a session that is lost is replaced", "codex", "glm", "kimi")
def replaced_session(home):
    first = home.turn("SAY:the word is heron")
    for folder in (".codex/sessions", ".local/share/opencode", ".kimi-code/sessions"):
        shutil.rmtree(home.agent_home / folder, ignore_errors=True)
    for rest in (home.agent_home / ".codex").glob("*.sqlite*"):
        rest.unlink()
    second = home.turn("SAY:second", "--task", first.task)
    texts = [entry["text"] for entry in home.stored(first.task)["entries"]]
    demand(texts[0] == "SAY:the word is heron" and "the word is heron" in texts and
           texts[-1] == "second", f"the transcript is not whole: {texts} {second.summary()}")


# ---- models -------------------------------------------------------------------------------------

# What is chosen, and what the model's server is then asked for.
CHOICES = {
    "codex": (["--model", "gpt-5.5", "--effort", "low"], "gpt-5.5, effort low"),
    "claude": (["--model", "opus", "--effort", "low"], "claude-opus"),
    "glm": (["--model", "zai-coding-plan/glm-4.5-air"], "glm-4.5-air"),
    "kimi": (["--model", "second"], "kimi-second"),
}


@case("the chosen model does the work")
def chosen_model(home):
    options, expected = CHOICES[home.program.provider]
    run = home.turn("MODEL", *options)
    demand(run.said().startswith("MODEL: " + expected), run.summary())
    demand(not run.of_kind("system"), run.summary())


@case("a model that it does not take is told", "kimi")
def model_not_taken(home):
    run = home.turn("MODEL", "--model", "none-such")
    notes = [entry["text"] for entry in run.of_kind("system")]
    demand(len(notes) == 1 and "none-such" in notes[0], f"not told: {run.summary()}")


@case("a model outside the plan is refused", "glm")
def model_outside_plan(home):
    for model in ("zai-coding-plan/none-such", "openai/gpt-5.5"):
        run = home.turn("MODEL", "--model", model, status=1)
        demand(not run.said(), f"it worked with another model: {run.summary()}")


# ---- failures -----------------------------------------------------------------------------------

LIMIT_TEXTS = {"codex": "usage limit", "claude": "limit", "glm": "usage limit"}
FAILURE_TEXTS = {"codex": "", "claude": "500", "glm": "fails on purpose"}
SIGN_IN_TEXTS = {"codex": "sign in", "claude": "sign in", "glm": "Incorrect API key",
                 "kimi": "sign in"}
PATIENT_SECONDS = 150  # OpenCode tries again for more than a minute before it gives up


def failed_turn(home, prompt, text):
    run = home.start(prompt)
    run.ends(1, PATIENT_SECONDS)
    demand_run(run, "failed", text)
    errors = [entry["text"] for entry in run.of_kind("system")]
    demand(len(errors) == 1 and errors[0].startswith(f"Error from {home.program.label}: "),
           f"the failure stands in the transcript once: {run.summary()}")
    demand_settled(home, run.task)
    return run


@case("a spent allowance fails the run with its words", "codex", "claude", "glm")
def limit(home):
    run = failed_turn(home, "LIMIT", LIMIT_TEXTS[home.program.provider])
    demand(not run.said(), f"the failure is no answer: {run.summary()}")
    again = home.turn("SAY:there is more", "--task", run.task)
    demand("there is more" in again.said(), again.summary())


@case("a spent allowance is remembered", "codex", "claude")
def limit_remembered(home):
    home.turn("LIMIT", status=1)
    reported = json.loads(home.command("usage", home.program.provider, "--json"))[0]["lastReported"]
    demand(reported and reported["exhausted"], f"the ledger does not know it: {reported}")


@case("one task goes on from program to program", "codex")
def handed_on(home):
    task = home.turn("SAY:first words", routed=True).task
    session = home.stored(task)["providerSessionIDs"]["codex"]

    home.add(PROGRAMS["claude"])
    run = home.turn("LIMIT:responses\nSAY:done by the next", "--task", task, routed=True)
    system = [entry["text"] for entry in run.of_kind("system")]
    demand(system == ["Codex allowance reached. Automatically handed this task to Claude."],
           run.summary())
    demand("done by the next" in run.said(), run.summary())
    last = run.last_run()
    demand((last["provider"], last["status"], last["routingReason"]) ==
           ("claude", "completed", "Codex allowance reached; continued with Claude."), f"{last}")

    home.add(PROGRAMS["kimi"])
    home.command("handoff", "--next", task, "kimi")
    run = home.turn("SAY:by choice", "--task", task, routed=True)
    system = [entry["text"] for entry in run.of_kind("system")]
    demand("Switched this task from Claude to Kimi with visible context attached." in system,
           run.summary())

    home.command("handoff", task, "codex")
    run = home.turn("RECALL", "--task", task, routed=True)
    demand("RECALLED: SAY:first words" in run.said(), f"not its own session: {run.summary()}")
    stored = home.stored(task)
    demand(stored["providerSessionIDs"]["codex"] == session, "it has another session now")
    said = "\n".join(entry["text"] for entry in stored["entries"])
    for text in ("first words", "done by the next", "by choice"):
        demand(text in said, f"'{text}' is lost: {said}")


# ---- several prompts, several tasks -------------------------------------------------------------


@case("prompts that wait go out one after the other, in one session", "codex", "claude")
def queued(home):
    task = home.turn("SAY:one").task
    home.command("queue", "add", task, "SAY:two")
    home.command("queue", "add", task, "RECALL")
    run = home.begin("queue", "run", task, "--json", "--provider", home.program.provider)
    run.ends(0)
    demand("two" in run.said() and "RECALLED: SAY:one" in run.said(), run.summary())
    stored = demand_settled(home, task)
    demand([each["status"] for each in stored["runs"]] == ["completed"] * 3, f"{stored['runs']}")
    demand(not stored.get("queuedPrompts"), f"something waits: {stored['queuedPrompts']}")


def commit_project(home):
    (home.project / "a.txt").write_text("one\n")
    for words in (["init", "--quiet"], ["add", "--all"],
                  ["-c", "user.name=Ada", "-c", "user.email=ada@example.invalid", "commit",
                   "--quiet", "--message", "A commit"]):
        subprocess.run(["git", *words], cwd=home.project, check=True,
                       env={**home.environment, "GIT_CONFIG_GLOBAL": "/dev/null"})


@case("one prompt goes to two programs side by side, each in a worktree of its own", "codex")
def compared(home):
    home.add(PROGRAMS["claude"])
    commit_project(home)
    run = home.begin("compare", "--json", "--with", "codex", "--with", "claude", "--answer",
                     "allow_once", "SLOW:0.05\nRUN:printf made > made.txt")
    run.ends(0)
    results = [event for event in run.events if event["event"] == "result"]
    demand([(each["provider"], each["status"]) for each in results] ==
           [("codex", "completed"), ("claude", "completed")], f"{results} {run.summary()}")
    demand(len({each["comparisonGroupID"] for each in results}) == 1, f"{results}")
    demand(len({each["path"] for each in results}) == 2, f"one worktree for both: {results}")
    spoke, ended = {}, {}  # when each one spoke first, and ended, by the order of the events
    for place, event in enumerate(run.events):
        if event["event"] == "chunk":
            spoke.setdefault(event["threadID"], place)
        if event["event"] == "run" and event["run"]["status"] == "completed":
            ended[event["threadID"]] = place
    demand(max(spoke.values()) < min(ended.values()), f"not at the same time: {spoke} {ended}")
    for each in results:
        demand((Path(each["path"]) / "made.txt").read_text() == "made", f"not made: {each}")
        demand([file["path"] for file in each["files"]] == ["made.txt"], f"{each}")
        stored = demand_settled(home, each["threadID"])
        demand(stored["comparisonGroupID"] == each["comparisonGroupID"] and
               stored["isolatedWorkspacePath"] == each["path"], f"{stored}")
    demand(not (home.project / "made.txt").exists(), "the project itself was changed")


@case("the program tells its allowance", "codex")
def allowance(home):
    now = json.loads(home.command("usage", "codex", "--json"))[0]["now"]
    demand(now and (now["usedPercent"], now["longerUsedPercent"], now["plan"], now["exhausted"]) ==
           (USED_PERCENT["primary"], USED_PERCENT["secondary"], "plus", False),
           f"not what the server told: {now}")


@case("the program tells its models", "codex")
def models(home):
    told = json.loads(home.command("models", "codex", "--json"))
    demand(told["areReported"], f"nothing was reported: {told['origin']}")
    own = [model for model in told["models"] if model["id"] != "default"]
    demand(own and all(model["label"] for model in own), f"no models with names: {own}")
    demand(sum(model["isDefault"] for model in own) == 1, f"one is the recommended one: {own}")


@case("a model that fails fails the run with its words", "codex", "claude", "glm")
def model_failure(home):
    failed_turn(home, "FAIL:500", FAILURE_TEXTS[home.program.provider])


@case("a failure that the agent keeps to itself fails the run", "kimi")
def swallowed_failure(home):
    for prompt, words in (("LIMIT", "usage limit"), ("FAIL:500", "fails on purpose")):
        run = failed_turn(home, prompt, words)
        again = home.turn("SAY:there is more", "--task", run.task)
        demand_run(again, "completed")


@case("a spent allowance that the agent keeps to itself hands the task on", "kimi")
def swallowed_limit_handed_on(home):
    home.add(PROGRAMS["claude"])
    run = home.turn("LIMIT:completions\nSAY:done by the next", routed=True)
    system = [entry["text"] for entry in run.of_kind("system")]
    demand(system == ["Kimi allowance reached. Automatically handed this task to Claude."] and
           "done by the next" in run.said(), run.summary())


@case("a server that refuses every try has no allowance left", "codex")
def refused_limit(home):
    failed_turn(home, "BUSY", "429")
    home.add(PROGRAMS["claude"])
    run = home.turn("BUSY\nSAY:done", status=1, routed=True)
    system = [entry["text"] for entry in run.of_kind("system")]
    demand("Codex allowance reached. Automatically handed this task to Claude." in system,
           run.summary())


@case("a server that is busy for everybody takes nothing from the allowance", "claude")
def busy_server(home):
    run = failed_turn(home, "BUSY", "not your usage limit")
    demand(not run.said(), f"the failure is no answer: {run.summary()}")
    reported = json.loads(home.command("usage", "claude", "--json"))[0]["lastReported"]
    demand(not (reported and reported["exhausted"]), f"the ledger counts it: {reported}")


@case("what is said after a tool is a message of its own", "claude", "kimi")
def said_after_tool(home):
    run = home.start("SAY:I look:\nRUN:printf made > made.txt")
    run.answer("allow_once")
    run.ends(0)
    kinds = [entry["kind"] for entry in demand_settled(home, run.task)["entries"]]
    demand(kinds == ["user", "assistant", "tool", "assistant"], f"{kinds}: {run.summary()}")
    demand(run.of_kind("assistant")[0]["text"] == "I look:", run.summary())
    demand("made.txt" in run.of_kind("tool")[0]["title"] + run.of_kind("tool")[0]["text"],
           f"nobody sees what it did: {run.summary()}")


@case("a question that is no permission is answered by a choice", "claude")
def user_question(home):
    run = home.start("ASK:Which colour?;Red;Blue")
    question = run.answer("choice")
    demand(question["title"] == "Which colour?" and
           [option["name"] for option in question["options"]][:2] == ["Red", "Blue"], f"{question}")
    run.ends(0)
    demand("Red" in run.said(), f"the answer did not reach it: {run.summary()}")


@case("settings that ask for nothing are told at the start", "glm")
def asks_nothing(home):
    path = home.agent_home / ".config/opencode/opencode.json"
    settings = json.loads(path.read_text())
    del settings["permission"]
    path.write_text(json.dumps(settings))
    run = home.turn("RUN:printf made > made.txt")
    notes = [entry["text"] for entry in run.of_kind("system")]
    demand(len(notes) == 1 and "may act without asking" in notes[0], f"not told: {run.summary()}")


@case("a runtime that dies at its start tells why")
def death_at_start(home):
    starter = home.folder / "dying"
    starter.write_text("#!/bin/sh\necho 'FATAL: out of licence seats' >&2\nexit 3\n")
    starter.chmod(0o755)
    home.command("settings", home.program.setting, str(starter))
    run = home.turn("SAY:hello", status=1)
    demand_run(run, "failed", "out of licence seats")


@case("a rejected sign-in says what to do")
def sign_in(home):
    failed_turn(home, "FAIL:401", SIGN_IN_TEXTS[home.program.provider])


# ---- deaths -------------------------------------------------------------------------------------


@case("an agent that is killed fails the run; the next turn goes on")
def agent_killed(home):
    run = home.start("SLOW:0.2")
    run.until_text("tick 2")
    os.kill(agent_process(home), signal.SIGKILL)
    run.ends(1)
    demand_run(run, "failed")
    demand("\x1b" not in run.last_run()["statusMessage"], run.summary())
    demand_settled(home, run.task)
    home.leaves_no_process()
    again = home.turn("SAY:still here", "--task", run.task)
    demand("still here" in again.said(), again.summary())


@case("an agent that is killed at a question leaves nothing open")
def agent_killed_at_question(home):
    prompt, made = work_of(home, "command")
    run = home.start(prompt)
    run.until_question()
    os.kill(agent_process(home), signal.SIGKILL)
    run.ends(1)
    demand_run(run, "failed")
    demand(not made.exists(), "the command has run")
    demand_settled(home, run.task)


@case("when Vantrell is killed its agent ends; the next start settles it")
def vantrell_killed(home):
    run = home.start("SLOW:0.2")
    run.until_text("tick 2")
    agent_process(home)
    run.kill()
    home.leaves_no_process()
    again = home.turn("SAY:still here", "--task", run.task)
    demand("still here" in again.said(), again.summary())
    stored = demand_settled(home, run.task)
    demand([each["status"] for each in stored["runs"]] == ["interrupted", "completed"],
           f"the runs are not as they went: {stored['runs']}")


@case("when Vantrell is killed while a tool runs, the next start settles it")
def vantrell_killed_in_tool(home):
    run = home.start("RUN:printf made > made.txt")
    run.until_question()
    run.kill()
    home.leaves_no_process()
    home.command("tasks")
    demand_settled(home, run.task)
