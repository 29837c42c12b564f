"""What must hold where `vantrell serve` owns the state: commands beside it, and the gateway's jobs."""

import json
import os
import signal
import socket
import urllib.error
import urllib.request

from cases import case, demand_run, work_of
from conversation import REQUEST_MARK
from vantrell import STEP_SECONDS, demand, wait_until


class Gateway:
    """`vantrell serve` with its gateway on, and a key for the home's program or another provider."""

    def __init__(self, home, provider=None):
        self.home = home
        self.provider = provider or home.program.provider
        home.environment["XDG_RUNTIME_DIR"] = str(home.folder / "runtime")
        os.makedirs(home.folder / "runtime", exist_ok=True)
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        home.command("gateway", "port", str(self.port))
        home.command("gateway", "on")
        self.begin()
        # A project is known once a task was made there.
        home.command("new", "--project", str(home.project))
        self.key = home.command("gateway", "keys", "create", "site", "--project",
                                str(home.project), "--provider", self.provider, "--mode",
                                "auto").strip()
        self.project = self.ask("GET", "/v1/projects")[1]["projects"][0]["id"]

    def begin(self):
        self.server = self.home.begin("serve")
        demand(wait_until(self.listens, STEP_SECONDS), "the gateway does not listen")

    def listens(self):
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", self.port)) == 0

    def ask(self, method, path, body=None):
        request = urllib.request.Request(
            f"http://127.0.0.1:{self.port}{path}", method=method,
            data=None if body is None else json.dumps(body).encode(),
            headers={"Authorization": f"Bearer {self.key}"})
        try:
            with urllib.request.urlopen(request, timeout=STEP_SECONDS) as answer:
                return answer.status, json.load(answer)
        except urllib.error.HTTPError as error:
            return error.code, json.load(error)

    def create(self, prompt):
        status, job = self.ask("POST", "/v1/jobs", {
            "project": self.project, "provider": self.home.program.provider,
            "prompt": REQUEST_MARK + prompt})  # a job's prompt goes out as it is
        demand(status == 202, f"the job was not taken: {status} {job}")
        return job["id"]

    def until(self, job, *wanted):
        found = {}

        def is_there():
            found.update(self.ask("GET", f"/v1/jobs/{job}")[1])
            return found["status"] in (*wanted, "completed", "failed", "cancelled")

        demand(wait_until(is_there, STEP_SECONDS) and found["status"] in wanted,
               f"the job should be {wanted}: {found}")
        return found

    def answer(self, job, kind):
        approval = self.until(job, "waiting_for_approval")["pending_approval"]
        option = next(each for each in approval["options"] if each["kind"] == kind)
        status, answer = self.ask("POST", f"/v1/jobs/{job}/approval", {"option_id": option["id"]})
        demand(status == 200, f"the answer was not taken: {status} {answer}")

    def stop(self):
        self.server.signal(signal.SIGTERM)
        self.server.ends(0)


@case("a command works in the process that serves")
def beside_server(home):
    gateway = Gateway(home)
    prompt, made = work_of(home, "command")
    run = home.start(prompt)
    run.answer("allow_once")
    run.ends(0)
    demand_run(run, "completed")
    demand(made.exists(), "the command was not run")
    stopped = home.start("SLOW:0.2", "--task", run.task)
    stopped.until_text("tick 1")
    stopped.signal(signal.SIGINT)
    stopped.ends(130)
    gateway.stop()


@case("a job is done over HTTP, asks, is refused and is cancelled")
def gateway_jobs(home):
    gateway = Gateway(home)
    said = gateway.until(gateway.create("SAY:from a job"), "completed")
    demand("from a job" in said["output"], f"it said something else: {said}")

    prompt, made = work_of(home, "command")
    job = gateway.create(prompt)
    waiting = gateway.create("SAY:behind it")
    gateway.answer(job, "reject_once")
    gateway.until(job, "completed", "failed")  # some agents end their turn at a refusal
    demand(not made.exists(), "it was run though it was refused")
    gateway.until(waiting, "completed")

    job = gateway.create(prompt)
    gateway.answer(job, "allow_once")
    gateway.until(job, "completed")
    demand(made.exists(), "it was not run though it was allowed")

    job = gateway.create("SLOW:0.2")
    gateway.until(job, "working")
    status, cancelled = gateway.ask("POST", f"/v1/jobs/{job}/cancel")
    demand(status == 200 and cancelled["status"] == "cancelled", f"{status} {cancelled}")
    gateway.stop()


@case("jobs outlive the process that serves them")
def jobs_after_restart(home):
    gateway = Gateway(home)
    at_work = gateway.create("SLOW:0.2")
    queued = gateway.create("SAY:after the restart")
    gateway.until(at_work, "working")
    gateway.server.signal(signal.SIGKILL)
    gateway.server.ends(-signal.SIGKILL)
    gateway.begin()
    gateway.until(at_work, "failed")
    demand("after the restart" in gateway.until(queued, "completed")["output"], "nothing was said")
    gateway.stop()
