"""What a conversation keeps and says when agents answer in ways that no good agent does."""

import json
import os
import shlex
import signal
import sys

from cases import case
from practice import (git, odd_glm, odd_kimi, odd_turn, perform, prompts_of, repository, script,
                      succeeds, task_of, texts, write)
from vantrell import STEP_SECONDS, demand, wait_until


def odd_task(home, prompt, **options):
    return odd_turn(home, prompt, **options).task


# ---- what is kept -------------------------------------------------------------------------------


@case("a playback deletes nothing that is stored", "practice")
def playback(home):
    script(home.project / "note", "echo noted")
    task = task_of(home, "SAY:first")
    succeeds(home, "hooks", "add", "afterTask", "note", folder=home.project)
    home.turn("SAY:second", "--task", task)
    perform(home, "run", "--practice", "--task", task, "FAIL:kaputt")
    stopped = home.start("SLOW:0.1", "--task", task)
    stopped.until_text("tick 1")
    stopped.signal(signal.SIGINT)
    stopped.ends(130)
    script(home.folder / "dying", "exit 3")
    perform(home, "run", "--practice", "--executable", str(home.folder / "dying"), "--task", task,
            "a prompt that never arrives")
    crashed = home.start("SAY:partial\nDIE:9", "--task", task)
    crashed.ends(1)
    before = home.stored(task)["entries"]
    home.turn("SAY:last", "--task", task)
    after = home.stored(task)["entries"]
    places = {entry["id"]: entry for entry in after}
    for entry in before:
        kept = places.get(entry["id"])
        demand(kept and kept["text"] == entry["text"] and kept["createdAt"] == entry["createdAt"],
               f"{entry} is gone or changed: {after}")
    order = [entry["id"] for entry in after if entry["id"] in {each["id"] for each in before}]
    demand(order == [entry["id"] for entry in before], "the order has changed")


@case("a playback that is shorter loses nothing", "practice")
def shorter_playback(home):
    odd_kimi(home)
    task = odd_task(home, "SAY:one")
    for words in ("two", "three"):
        odd_turn(home, f"SAY:{words}", "--task", task)
    demand(texts(home, task) == ["SAY:one", "one", "SAY:two", "two", "SAY:three", "three"],
           f"{texts(home, task)}")


@case("what an agent says after its turn reaches the disk", "practice")
def late_words(home):
    repository(home.project)
    odd_kimi(home)
    odd_glm(home)
    run = home.begin("compare", "--json", "--with", "kimi", "--with", "glm",
                     "SAY@kimi:word\nLATE@kimi\nLONG@glm")
    run.until(lambda event: event.get("run", {}).get("status") == "completed", "kimi's end")
    task = next(event["threadID"] for event in run.events
                if event.get("run", {}).get("status") == "completed")

    demand(wait_until(lambda: "late words" in "".join(texts(home, task)), 25),
           f"not on the disk: {texts(home, task)}")
    run.kill()


@case("a comparison leaves no empty third task", "practice")
def comparison_without_task(home):
    repository(home.project)
    odd_kimi(home)
    odd_glm(home)
    succeeds(home, "compare", "--with", "kimi", "--with", "glm", "SAY:both")
    lines = map(json.loads, succeeds(home, "tasks", "--json").stdout.splitlines())
    empty = [each for each in lines if "status" not in each and "SAY" in each["title"]]
    demand(not empty, f"a task that nobody works on: {empty}")


@case("why a checkpoint is missing stays out of what agents are told", "practice")
def capsule_without_notes(home):
    repository(home.project)
    git(home.project, "checkout", "-q", "-b", "other")
    write(home.project, {"a": "theirs\n"})
    git(home.project, "commit", "-qam", "theirs")
    git(home.project, "checkout", "-q", "main")
    write(home.project, {"a": "ours\n"})
    git(home.project, "commit", "-qam", "ours")
    perform_merge = ["git", "-C", str(home.project), "merge", "-q", "other"]
    os.spawnvp(os.P_WAIT, "sh", ["sh", "-c", shlex.join(perform_merge) + " >/dev/null 2>&1"])
    run = home.turn("SAY:hello")
    demand(any("No checkpoint" in text for text in texts(home, run.task, "system")),
           "there was a checkpoint")
    prompts = odd_kimi(home)
    odd_turn(home, "SAY:on", "--task", run.task)
    told = prompts_of(prompts)[-1]
    demand("hello" in told and "No checkpoint" not in told, told)


# ---- questions and tools ------------------------------------------------------------------------


@case("two open questions with one id both get their answer", "practice")
def one_id_for_two(home):
    odd_kimi(home)
    run = odd_turn(home, "DUPLICATE", "--answer", "allow_once")
    demand("answers allow_once allow_once; third allow_once" in run.said(), run.summary())


@case("the refusal that is printed is the one that is sent", "practice")
def refusal_at_the_end(home):
    odd_kimi(home)
    done = perform(home, "run", "--provider", "kimi", "ALWAYS")
    lines = done.stdout.splitlines()
    printed = next(line.removeprefix("→ ") for line in lines if line.startswith("→ "))
    demand(f"answered {printed}" in lines, done.stdout + done.stderr)


@case("a question goes with its agent", "practice")
def question_of_one_that_is_gone(home):
    odd_kimi(home)
    odd_glm(home)
    run = home.begin("run", "LIMITED_AT_QUESTION@kimi\nWAIT@glm\nASK@glm:of the next")
    run.until(lambda _: "handed this task to GLM" in run.output, "the hand-off")
    run.process.stdin.write("1\n")
    run.process.stdin.flush()
    run.ends(0)
    demand("answered allow_once" in run.output, run.output)


@case("a tool update without a title keeps the title and the end", "practice")
def untitled_update(home):
    odd_kimi(home)
    task = odd_task(home, "UNTITLED")
    tool = next(entry for entry in home.stored(task)["entries"] if entry["kind"] == "tool")
    demand((tool["title"], tool["status"]) == ("Read notes.txt", "completed"), f"{tool}")


@case("what a tool call parts is shown, exported and kept where it was said", "practice")
def parted_text(home):
    odd_kimi(home)
    task = odd_task(home, "PARTED")
    kinds = [entry["kind"] for entry in home.stored(task)["entries"]]
    demand(kinds == ["user", "assistant", "tool", "assistant"], f"{kinds}")
    for words in (["show", task], ["export", task], ["say", task]):
        done = succeeds(home, *words)
        demand("DONE and seen" in done.stdout and "```DONE" not in done.stdout, done.stdout)


# ---- last words ---------------------------------------------------------------------------------


@case("last words reach the run, whenever an agent dies", "practice")
def last_words(home):
    begin = "import json,sys\ndef read(): return json.loads(sys.stdin.readline())\n" \
            "def reply(m,r): print(json.dumps({'jsonrpc':'2.0','id':m['id'],'result':r}),flush=True)\n" \
            "def die(): print('FATAL: out of licence seats',file=sys.stderr,flush=True);sys.exit(3)\n"
    modes = {"modes": {"currentModeId": "x", "availableModes": [
        {"modeId": each, "id": each, "name": each} for each in ("x", "manual", "auto", "yolo")]}}
    agents = {
        "at its start": "read();die()",
        "while it is written to": "reply(read(),{'protocolVersion':1,'agentCapabilities':{}});"
                                  "reply(read(),{'sessionId':'s'});sys.stdin.buffer.raw.read(9);die()",
        "while its mode is set": "reply(read(),{'protocolVersion':1,'agentCapabilities':{}});"
                                 f"reply(read(),dict({modes!r},sessionId='s'));read();die()",
    }
    prompt = home.folder / "prompt"
    prompt.write_text("SAY:" + "x" * 1_200_000)
    for when, text in agents.items():
        source = home.folder / "dying.py"
        source.write_text(begin + text)
        script(home.folder / "dying", shlex.join(["exec", sys.executable, str(source)])
               .replace("exec", "exec", 1))
        for _ in range(3):
            with open(prompt) as words:
                done = perform(home, "run", "--provider", "kimi", "--executable",
                               str(home.folder / "dying"), "-", stdin=words)
            demand(done.returncode == 1 and "out of licence seats" in done.stdout,
                   f"{when}: {done.stdout[-300:]}{done.stderr}")


@case("colour codes alone are no message", "practice")
def colours_alone(home):
    odd_kimi(home)
    run = odd_turn(home, "DIE", status=1)
    said = run.last_run().get("statusMessage", "")
    demand(len(said.strip()) > 10 and "\x1b" not in said, repr(said))


# ---- what the next agent knows ------------------------------------------------------------------


@case("forks, branches, retries and comparisons know what was said", "practice")
def context_of_copies(home):
    repository(home.project)
    kimi, glm = odd_kimi(home), odd_glm(home)
    task = odd_task(home, "SAY:the word is heron")
    odd_turn(home, "SAY:second", "--task", task)
    fork = json.loads(succeeds(home, "fork", task, "--json").stdout)["threadID"]
    odd_turn(home, "SAY:in the fork", "--task", fork)
    demand("heron" in prompts_of(kimi)[-1], "the fork knows nothing")
    for words in (["branch", task, "SAY:other words"], ["retry", task]):
        run = home.begin(words[0], *words[1:2], "--provider", "kimi", *words[2:])
        run.ends(0)
        demand("heron" in prompts_of(kimi)[-1], f"{words[0]} knows nothing")
    succeeds(home, "compare", "--task", task, "--with", "kimi", "--with", "glm", "SAY:both")
    for prompts in (kimi, glm):
        demand("heron" in prompts_of(prompts)[-1], f"{prompts.name} knows nothing")


@case("a comparison names who worked, and no provider does both halves", "practice")
def comparison_with_a_limit(home):
    repository(home.project)
    odd_kimi(home)
    odd_glm(home)
    run = home.begin("compare", "--json", "--with", "kimi", "--with", "glm", "LIMITED@kimi\nSAY:done")
    run.ends(1)
    results = [json.loads(line) for line in run.output.splitlines() if '"result"' in line]
    demand([(each["provider"], each["status"]) for each in results] ==
           [("kimi", "failed"), ("glm", "completed")], f"{results}")


@case("models that an agent reported are offered", "practice")
def reported_models(home):
    odd_kimi(home)
    task = odd_task(home, "SAY:hello")
    demand("odd-two" in succeeds(home, "models", "kimi").stdout, "not listed")
    succeeds(home, "models", "kimi", "--task", task, "--use", "odd-two")
