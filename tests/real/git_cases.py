"""Checkpoints, restores and worktrees in repositories that make them hard, through the program."""

import signal
import subprocess
import time
from pathlib import Path

from cases import case
from practice import (checkpoint, git, isolated, odd_glm, odd_kimi, perform, refuses, repository,
                      restore, script, succeeds, task_of, texts, without_rights, write)
from vantrell import STEP_SECONDS, demand, wait_until

MANY = 1500  # files, so that a restore or a copy takes long enough to be met by a signal


def hook(home, text):
    script(home.project / ".git/hooks/post-checkout", text)


def content(home, name="a"):
    path = home.project / name
    return path.read_text() if path.is_file() else None


def goes_back(home, prepare=lambda: None, **options):
    """A checkpoint is taken, its work goes on, and it is restored; returns the task."""
    task = task_of(home)
    write(home.project, {"a": "of the checkpoint\n"})
    taken = checkpoint(home, task)
    write(home.project, {"a": "later\n"})
    prepare()
    done = restore(home, task, taken, **options)
    demand(done.returncode == 0 and content(home) == "of the checkpoint\n",
           f"not restored ({done.returncode}): {content(home)} {done.stderr}")
    return task


@case("a restore runs no hook of the project", "practice")
def restore_without_hooks(home):
    repository(home.project)
    hook(home, "exit 2")
    goes_back(home)
    hook(home, "echo generated > a")
    goes_back(home)


@case("worktrees are made without hooks of the project", "practice")
def worktrees_without_hooks(home):
    repository(home.project)
    hook(home, "exit 2")
    task = task_of(home)
    run = home.turn("SAY:again", "--task", task)
    branch = home.begin("branch", task, "--practice", "--json", "SAY:branch")
    branch.ends(0)
    demand(home.stored(branch.task).get("isolatedWorkspacePath"), "it works in the shared folder")
    demand(isolated(home, run.task).is_dir(), "there is no worktree")
    odd_kimi(home)
    odd_glm(home)
    done = perform(home, "compare", "--with", "kimi", "--with", "glm", "SAY:both")
    demand(done.returncode == 0, f"no comparison: {done.stderr}")


@case("a branch in the shared folder says why", "practice")
def branch_without_worktree(home):
    repository(home.project)
    task = task_of(home)
    path = isolated(home, task_of(home))
    git(home.project, "worktree", "remove", "--force", str(path))
    while path.parent.name not in ("vantrell", "data"):
        path = path.parent
    subprocess.run(["rm", "-rf", str(path)], check=True)
    path.write_text("")  # a file where worktrees are made
    branch = home.begin("branch", task, "--practice", "--json", "SAY:branch")
    branch.ends(0)
    said = texts(home, branch.task, "system")
    demand(any("works in the project's own folder: " in text for text in said), f"no reason is given: {said}")


@case("a restore leaves a submodule without content alone", "practice")
def submodule_without_content(home):
    repository(home.folder / "library")
    repository(home.project)
    git(home.project, "submodule", "add", "-q", str(home.folder / "library"), "sub")
    git(home.project, "commit", "-q", "-m", "submodule")
    git(home.project, "submodule", "deinit", "-f", "sub")
    task = goes_back(home)
    demand((home.project / "sub").is_dir() and "sub" not in git(home.project, "status", "-s"),
           "the submodule's folder is gone")
    worktree = isolated(home, task)
    taken = checkpoint(home, task)
    (worktree / "new").write_text("new")
    demand(restore(home, task, taken).returncode == 0 and (worktree / "sub").is_dir(),
           "the submodule's folder is gone from the worktree")


@case("a restore passes read-only folders", "practice")
def read_only_folders(home):
    repository(home.project)

    def prepare():
        write(home.project, {"cache/x/file": "cached\n"})
        for folder in ("cache/x", "cache"):
            (home.project / folder).chmod(0o555)

    goes_back(home, prepare, before=without_rights())


@case("a filter that cannot run is found out before a restore begins", "practice")
def missing_filter(home):
    repository(home.project, {"a": "committed\n", ".gitattributes": "z filter=lost\n", "b": "1\n",
                              "z": "1\n"})
    task = task_of(home)
    taken = checkpoint(home, task)
    write(home.project, {"a": "later\n", "b": "2\n", "z": "2\n", "untracked": "mine\n"})
    git(home.project, "config", "filter.lost.smudge", "no-such-program")
    git(home.project, "config", "filter.lost.clean", "cat")
    git(home.project, "config", "filter.lost.required", "true")
    done = restore(home, task, taken)
    demand(done.returncode == 1, "it claims to be restored")
    demand((content(home), content(home, "b"), content(home, "untracked")) ==
           ("later\n", "2\n", "mine\n"), f"half way: {done.stderr}")


@case("a restore refuses while another command holds the index", "practice")
def index_is_locked(home):
    repository(home.project)
    task = task_of(home)
    taken = checkpoint(home, task)
    write(home.project, {"a": "later\n", ".git/index.lock": ""})
    done = restore(home, task, taken)
    demand(done.returncode == 1 and content(home) == "later\n", f"{done.returncode} {done.stderr}")
    demand("Some files" not in done.stderr and "index.lock" in done.stderr, done.stderr)


@case("a linked worktree inside the project keeps its repository to itself", "practice")
def linked_worktree(home):
    repository(home.project)
    git(home.project, "worktree", "add", "-q", ".worktrees/feat", "-b", "feat")
    path = isolated(home, task_of(home))
    demand(not (path / ".worktrees/feat/.git").exists(), "two folders share one repository")


@case("a repository in the way is refused before anything is touched", "practice")
def repository_in_the_way(home):
    repository(home.project)
    write(home.project, {"pkg": "a file\n"})
    task = task_of(home)
    taken = checkpoint(home, task)
    (home.project / "pkg").unlink()
    repository(home.project / "pkg/inner")
    write(home.project, {"a": "later\n"})
    restore(home, task, taken)
    demand(content(home) == "later\n" and (home.project / "pkg/inner/.git").is_dir() or
           content(home) == "committed\n" and content(home, "pkg") == "a file\n", "half way")
    if (home.project / "pkg").is_file():
        listed = succeeds(home, "checkpoint", "list", task).stdout
        back = restore(home, task, next(line.split()[0] for line in listed.splitlines()
                                        if "Before rewind" in line))
        demand(back.returncode == 0 and content(home) == "later\n" and
               (home.project / "pkg/inner/.git").is_dir(), f"there is no way back: {back.stderr}")


@case("a project that its repository ignores is named", "practice")
def ignored_project(home):
    repository(home.project)
    write(home.project, {".git/info/exclude": "/inner\n"})
    inner = home.project / "inner"
    write(inner, {"file": "mine\n"})
    run = home.turn("SAY:hello", "--project", str(inner))
    done = perform(home, "isolate", run.task)
    demand("ignore" in done.stdout + done.stderr, f"nothing says so: {done.stdout}{done.stderr}")
    done = perform(home, "checkpoint", "make", run.task, "mine")
    demand("ignore" in done.stdout + done.stderr, f"nothing says so: {done.stdout}{done.stderr}")


@case("what a clean filter takes out is in a checkpoint", "practice")
def clean_filter(home):
    repository(home.project, {"x.nb": "in\n", ".gitattributes": "*.nb filter=nb\n"})
    git(home.project, "config", "filter.nb.clean", "sed /OUT/d")
    task = task_of(home)
    write(home.project, {"x.nb": "in\nOUT of the checkpoint\n"})
    taken = checkpoint(home, task)
    write(home.project, {"x.nb": "in\nOUT later\n"})
    done = restore(home, task, taken)
    demand(content(home, "x.nb") == "in\nOUT of the checkpoint\n", f"lost: {done.stderr}")


@case("a signal in a restore finishes it or says what stands", "practice")
def signal_in_restore(home):
    files = {f"f/{number}": "x" * 2000 for number in range(MANY)}
    repository(home.project, files | {"a": "committed\n"})
    task = task_of(home)
    taken = checkpoint(home, task)
    for number, delay in ((signal.SIGINT, 0.15), (signal.SIGTERM, 0.3), (signal.SIGHUP, 0.45)):
        changed = {name: f"changed {delay}\n" for name in files}
        write(home.project, changed)
        process = subprocess.Popen(
            [home.vantrell, "checkpoint", "restore", task, taken, "--yes"], cwd=home.project,
            env=home.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        # The first file that is back shows that the restore is at work.
        wait_until(lambda: process.poll() is not None or
                   any(content(home, name) != changed[name] for name in list(files)[::100]), delay + 20)
        process.send_signal(number)
        _, errors = process.communicate(timeout=STEP_SECONDS)
        left = sum(content(home, name) != files[name] for name in files)
        demand(left in (0, MANY) or errors.strip(),
               f"{left} of {MANY} files are as before, without a word, after signal {number}")


@case("a worktree that was broken off says what it lacks", "practice")
def broken_worktree(home):
    repository(home.project)
    write(home.project, {f"f/{number}": "untracked" for number in range(MANY)})
    task = task_of(home)
    data = home.folder / "data"
    for _ in range(5):
        process = subprocess.Popen([home.vantrell, "isolate", task], cwd=home.project,
                                   env=home.environment, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        wait_until(lambda: process.poll() is not None or any(data.glob("vantrell/TaskSafety/worktrees/*/*/f/1*")), STEP_SECONDS)
        process.kill()
        process.wait()
        if not home.stored(task).get("isolatedWorkspacePath"):
            break
    done = perform(home, "isolate", task)
    path = Path(home.stored(task)["isolatedWorkspacePath"])
    there = len(list((path / "f").glob("*"))) if (path / "f").is_dir() else 0
    demand(there == MANY or "differ" in done.stdout + done.stderr, f"{there} of {MANY} files, and it says: {done.stdout}{done.stderr}")


@case("what a killed restore leaves is swept", "practice")
def sweeps_after_kill(home):
    files = {f"f/{number}": "x" * 2000 for number in range(MANY)}
    repository(home.project, files)
    task = task_of(home)
    taken = checkpoint(home, task)
    temporary = home.folder / "temporary"
    temporary.mkdir()
    home.environment["TMPDIR"] = str(temporary)

    def left():
        return list(temporary.iterdir()) + list((home.project / ".git").glob("*.vantrell*")) + \
            list((home.project / ".git").glob("vantrell-*"))

    for attempt in range(4):
        write(home.project, {name: f"changed {attempt}" for name in files})
        process = subprocess.Popen([home.vantrell, "checkpoint", "restore", task, taken, "--yes"],
                                   cwd=home.project, env=home.environment,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(lambda: process.poll() is not None or left(), STEP_SECONDS)
        time.sleep(0.05 * attempt)
        process.kill()
        process.wait()
    restored = restore(home, task, taken)
    demand(restored.returncode == 0, restored.stderr)
    demand(not left(), f"left behind: {left()}")


@case("a repository without a commit gets a sentence", "practice")
def without_commit(home):
    git(home.project, "init", "-q")
    task = task_of(home)
    done = refuses(home, "isolate", task)
    demand("fatal" not in done.stderr and "commit" in done.stderr, done.stderr)
    listed = perform(home, "checkpoint", "list", task)
    demand("commit" in listed.stdout + listed.stderr, f"{listed.stdout}{listed.stderr}")


@case("the worktree that a deleted task leaves is named", "practice")
def worktree_of_deleted(home):
    repository(home.project)
    task = task_of(home)
    path = isolated(home, task)
    done = succeeds(home, "delete", task, "--yes")
    demand(str(path) in done.stdout + done.stderr, f"not named: {done.stdout}{done.stderr}")


# ---- the conversation after a restore -----------------------------------------------------------


@case("a restore cuts the conversation where its checkpoint was taken", "practice")
def conversation_is_cut(home):
    repository(home.project)
    script(home.project / "hook", "echo noise")
    task = task_of(home, "SAY:first answer")
    perform(home, "run", "--practice", "--task", task, "FAIL:kaputt")
    home.turn("SAY:second answer", "--task", task)
    home.turn("SAY:third answer", "--task", task)
    listed = succeeds(home, "checkpoint", "list", task).stdout
    before = next(line.split()[0] for line in listed.splitlines() if "SAY:third" in line)
    demand(restore(home, task, before).returncode == 0, "not restored")
    demand(texts(home, task)[-2:] == ["second answer", "SAY:third answer"],
           f"cut in the wrong place: {texts(home, task)}")
    home.turn("SAY:fourth answer", "--task", task)
    after = texts(home, task)
    demand("third answer" not in after and "first answer" in after and after[-1] == "fourth answer",
           f"what was undone came back: {after}")


@case("after a restore the agent knows what is visible, and no more", "practice")
def session_after_restore(home):
    repository(home.project)
    prompts = odd_kimi(home)
    run = home.begin("run", "--json", "--provider", "kimi", "SAY:about herons")
    run.ends(0)
    for words in ("SAY:about storks", "SAY:about cranes"):
        home.begin("run", "--json", "--provider", "kimi", "--task", run.task, words).ends(0)
    listed = succeeds(home, "checkpoint", "list", run.task).stdout
    before = next(line.split()[0] for line in listed.splitlines() if "storks" in line)
    demand(restore(home, run.task, before).returncode == 0, "not restored")
    home.begin("run", "--json", "--provider", "kimi", "--task", run.task, "SAY:on").ends(0)
    last = prompts.read_text().splitlines()[-1]
    demand("herons" in last and "cranes" not in last, f"it is told: {last}")
