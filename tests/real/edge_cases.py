"""The edges of the process: folders, stores, disks, descriptors and what reaches a terminal."""

import json
import os
import pty
import shutil
import sqlite3
import subprocess
import sys

from cases import case
from practice import (git, odd_kimi, odd_turn, perform, prompts_of, refuses, repository, script,
                      succeeds, task_of, texts, write)
from vantrell import STEP_SECONDS, Failure, demand, wait_until

HIDDEN = "\x1b]52;c;QUJD\x07"  # would fill the clipboard of a terminal


def data(home):
    return home.folder / "data/vantrell"


def store(home):
    return data(home) / "conversations.sqlite"


def in_shell(home, text, **options):
    """A shell whose $V is the program."""
    options = {"capture_output": True, "text": True, "timeout": STEP_SECONDS,
               "stdin": subprocess.DEVNULL} | options
    return subprocess.run(["bash", "-c", text], cwd=home.project,
                          env=home.environment | {"V": home.vantrell}, **options)


# ---- folders ------------------------------------------------------------------------------------


@case("a working folder that was deleted is refused", "practice")
def deleted_folder(home):
    write(home.project, {"gone/file": ""})
    for words in ('run --practice "SAY:hello"', "new x"):
        done = in_shell(home, f'mkdir -p gone; cd gone; rm -r ../gone; "$V" {words}')
        demand(done.returncode in (1, 2), f"{words}: {done.returncode} {done.stdout}{done.stderr}")
    demand("/" not in json.dumps([line["path"] for line in map(json.loads, home.command(
        "projects", "--json").splitlines()) if line["path"] == "/"]), "the root is a project")


@case("a folder whose name is not UTF-8 is refused or stays", "practice")
def odd_folder_name(home):
    folder = os.fsencode(home.folder) + b"/caf\xe9"
    os.mkdir(folder)
    done = perform(home, "run", "--practice", "SAY:hello", folder=folder)
    again = perform(home, "tasks")
    if done.returncode == 0:
        demand("missing" not in again.stderr and "SAY:hello" in again.stdout, again.stderr)
    else:
        demand("UTF-8" in done.stderr, f"no reason: {done.stderr}")


# ---- the store ----------------------------------------------------------------------------------


def damage_free_pages(path):
    """The list of free pages leads out of the file, which only a write notices."""
    with sqlite3.connect(path) as database:
        database.execute("create table filler(x)")
        database.executemany("insert into filler values (zeroblob(4000))", [()] * 20)
        database.execute("drop table filler")
    database.close()  # with its log
    with open(path, "r+b") as file:
        file.seek(32)
        file.write((0x00FFFFFF).to_bytes(4, "big"))


def head_of(database, task):
    for number, record in database.execute("select number, record from heads"):
        if json.loads(record).get("id", "").upper() == task.upper():
            return number, json.loads(record)
    raise Failure(f"no head of {task}")


@case("damage that only a write meets is mended", "practice")
def damage_at_a_write(home):
    task = task_of(home, "SAY:first words")
    damage_free_pages(store(home))
    long = "second words " * 5000  # needs a new page
    perform(home, "run", "--practice", "--task", task, f"SAY:{long}")
    home.turn("SAY:third words", "--task", task)
    said = texts(home, task)
    demand("first words" in said and long.strip() in map(str.strip, said) and "third words" in said,
           f"not kept: {[text[:40] for text in said]}")


@case("settings whose damage only a write meets are mended or set aside", "practice")
def settings_damaged_at_a_write(home):
    task = task_of(home)
    succeeds(home, "settings", "workflow", "plan")
    damage_free_pages(home.folder / "config/vantrell/defaults.sqlite")
    long = "m" * 30000  # needs a new page
    perform(home, "settings", "claude-model", long)
    succeeds(home, "settings", "claude-model", long)
    demand("plan" in succeeds(home, "settings", "workflow").stdout, "the other setting is gone")
    demand("hello" in texts(home, task), "the task is gone")


@case("a task whose head cannot be read keeps its ID and is opened", "practice")
def damaged_head(home):
    task = task_of(home, "SAY:inside")
    with sqlite3.connect(store(home)) as database:
        changed = database.execute("update heads set record = '{}' where number = ?",
                                   (head_of(database, task)[0],)).rowcount
        demand(changed == 1, "the head was not found")
    database.close()
    listed = [[line["threadID"] for line in map(json.loads, home.command(
        "tasks", "--json").splitlines()) if "status" in line] for _ in range(2)]
    demand(listed[0] == listed[1] and len(listed[0]) == 1, f"another ID at each start: {listed}")
    demand("inside" in texts(home, listed[0][0]), "its words are gone")


@case("a store of a newer version is refused and stays", "practice")
def newer_store(home):
    task_of(home)
    with sqlite3.connect(store(home)) as database:
        version = database.execute("pragma user_version").fetchone()[0]
        database.execute(f"pragma user_version = {version + 1}")
    database.close()
    before = store(home).read_bytes()
    refuses(home, "run", "--practice", "SAY:again", words="newer")
    demand(store(home).read_bytes() == before, "the file was replaced")


@case("an empty store is told", "practice")
def empty_store(home):
    task_of(home)
    for each in data(home).glob("conversations.sqlite*"):
        each.unlink()
    store(home).write_bytes(b"")
    done = succeeds(home, "run", "--practice", "SAY:again")
    demand("empty" in done.stderr, f"not a word: {done.stderr}")


@case("a draft of a project that is missing is kept", "practice")
def draft_of_missing_project(home):
    project = home.folder / "other"
    repository(project)
    task = succeeds(home, "new", "--json", folder=project).stdout
    task = json.loads(task.splitlines()[-1])["threadID"]
    with sqlite3.connect(store(home)) as database:
        number, record = head_of(database, task)
        record["draftText"] = "words that were typed"
        database.execute("update heads set record = ? where number = ?", (json.dumps(record), number))
    database.close()
    shutil.rmtree(project)
    done = succeeds(home, "new", "elsewhere")
    kept = [each for each in data(home).rglob("*.json") if "words that were typed" in each.read_text()]
    demand(kept and done.stderr, f"the draft is gone: {done.stderr}")


def on_small_disk(home, text, size="2m"):
    """The data folder on a tmpfs of its own in a namespace of its own; $D is that folder."""
    mount = f'mount -t tmpfs -o size={size} none "$D" && '
    words = ["unshare", "-m"] if not os.geteuid() else ["unshare", "-Urm"]
    return subprocess.run([*words, "bash", "-c", mount + text], cwd=home.project, text=True,
                          env=home.environment | {"V": home.vantrell, "D": str(home.folder / "disk"),
                                                  "XDG_DATA_HOME": str(home.folder / "disk"),
                                                  "XDG_CONFIG_HOME": str(home.folder / "disk/c"),
                                                  "OUT": str(home.folder / "out")},
                          stdin=subprocess.DEVNULL, capture_output=True, timeout=STEP_SECONDS)


@case("a full disk and a read-only one can be looked at and exported", "practice")
def full_disk(home):
    (home.folder / "disk").mkdir()
    look = ('"$V" tasks && "$V" settings export "$OUT" && grep -q words "$OUT" && '
            '"$V" show $("$V" tasks --json | head -1 | jq -r .threadID)')
    begin = '"$V" run --practice "SAY:words" >/dev/null 2>&1 && '
    for state in ('head -c 9m /dev/zero > "$D/full" 2>/dev/null;', 'mount -o remount,ro "$D" &&'):
        done = on_small_disk(home, begin + state + 'rm -f "$OUT"; ' + look)
        demand(done.returncode == 0 and "SAY:words" in done.stdout,
               f"{state} {done.returncode}: {done.stdout}{done.stderr}")


@case("folders just made are synced into their parents", "practice")
def folders_are_synced(home):
    strace = shutil.which("strace")
    if not strace:
        raise Failure("strace is not installed")
    home.environment["XDG_DATA_HOME"] = str(home.folder / "far/away")
    trace = home.folder / "trace"
    done = perform(home, "run", "--practice", "SAY:hello", before=[
        strace, "-f", "-y", "-e", "trace=mkdir,mkdirat,fsync,fdatasync", "-o", str(trace)])
    demand(done.returncode == 0, done.stderr)
    lines = trace.read_text().splitlines()
    for folder in ("far", "far/away", "far/away/vantrell"):
        path = home.folder / folder
        made = next((number for number, line in enumerate(lines)
                     if "mkdir" in line and f'"{path}"' in line and line.endswith("= 0")), None)
        demand(made is not None, f"{path} was not made: {lines}")
        demand(any("sync" in line and f"<{path.parent}>" in line for line in lines[made:]),
               f"{path.parent} was not synced after {path} was made in it")


@case("a data folder that vanishes in a turn is told", "practice")
def vanished_data(home):
    run = home.start("SAY:before\nSLOW:0.05\nSAY:after")
    run.until_text("before")
    os.rename(data(home), home.folder / "data/elsewhere")
    run.ends(1)
    demand(run.errors.strip(), "nothing is said")


# ---- streams, descriptors and limits ------------------------------------------------------------


@case("closed standard streams keep nothing from its end", "practice")
def closed_streams(home):
    for closed in ("<&-", "<&- >&-", "<&- >&- 2>&-", ">&-", "2>&-", ">&- 2>&-"):
        for prompt in ("ASK:may I", "SAY:hello"):
            done = in_shell(home, f'timeout 20 "$V" run --practice {prompt!r} {closed}')
            demand(done.returncode != 124, f"{prompt} {closed} does not end")


@case("few descriptors and a limit of file sizes get a sentence", "practice")
def few_descriptors(home):
    for limit in ("-n 12", "-n 7", "-f 1"):
        done = in_shell(home, f'ulimit {limit}; ulimit -c 0; "$V" run --practice "SAY:hello"')
        demand(done.returncode == 1 and done.stderr.startswith("vantrell: ") and
               "terminate" not in done.stderr, f"{limit}: {done.returncode} {done.stderr}")


@case("standard error brings no control sequence of a name to a terminal", "practice")
def clean_errors(home):
    for name in (f"p{HIDDEN}", "q\x1b[31mred", "r\u202eback"):
        project = home.folder / name
        project.mkdir()
        succeeds(home, "run", "--practice", "SAY:hello", folder=project)
        project.rmdir()
    main, side = pty.openpty()
    done = perform(home, "new", "x", capture_output=False, stdout=subprocess.DEVNULL, stderr=side)
    usage = perform(home, "run", "--attach", f"x{HIDDEN}", "SAY:x", capture_output=False,
                    stdout=subprocess.DEVNULL, stderr=side)
    os.close(side)
    shown = b""
    try:
        while piece := os.read(main, 65536):
            shown += piece
    except OSError:
        pass  # the end of a terminal
    os.close(main)
    text = shown.decode(errors="replace")
    demand(done.returncode == 0 and usage.returncode == 2 and "missing" in text, text)
    own = text.replace("\x1b[0m", "").replace("\r\n", "\n")
    demand("\x1b]52" not in own and "\x1b[31mred" not in own and "\u202e" not in own, repr(text))


# ---- agents -------------------------------------------------------------------------------------


@case("what leaves its group ends with its agent", "practice")
def left_its_group(home):
    def left():
        return any("sleep 61.5" in text for text in home.processes().values())

    home.turn("RUN:setsid sleep 61.5 >/dev/null 2>&1 & sleep 0.3", "--answer", "allow_once")
    demand(wait_until(lambda: not left(), 6), "it outlives the run")
    run = home.start("RUN:setsid sleep 61.5 & sleep 30", "--answer", "allow_once")
    demand(wait_until(left, STEP_SECONDS), "it did not begin")
    run.kill()
    demand(wait_until(lambda: not left(), 6), "it outlives a kill")


@case("a line and a terminal's output have a bound", "practice")
def bounded(home):
    run = home.start("GARBAGE:long=300000000")
    run.ends(1, 120)
    demand("long" in str(run.last_run()) + run.errors or "bytes" in str(run.last_run()) or
           "MiB" in str(run.last_run()), run.summary())
    odd_kimi(home)
    run = home.begin("run", "--json", "--provider", "kimi", "--answer", "allow_once", "--", "TERMINAL")
    run.ends(0, 120)
    kept = int(run.said().split()[1].rstrip(","))
    demand(kept < 100_000_000 and "truncated True" in run.said(), run.summary())


@case("a relative entry of PATH is skipped", "practice")
def relative_path(home):
    odd_kimi(home)
    succeeds(home, "settings", "reset", "kimi-path")
    for folder in (home.project / "bin", home.folder / "bin"):
        folder.mkdir()
        shutil.copy(home.folder / "kimi", folder / "kimi")
    home.environment["PATH"] = f"bin:.:{home.folder}/bin:" + home.environment["PATH"]
    run = odd_turn(home, "SAY:found")
    demand("found" in run.said(), run.summary())


@case("a task's own project may be named", "practice")
def own_project(home):
    task = task_of(home)
    run = home.turn("SAY:again", "--task", task, "--project", str(home.project))
    demand("again" in run.said(), run.summary())
