"""Real agents as callers of the gateway: their model is the local runtime behind it."""

import copy
import json
import subprocess

from cases import case
from conversation import REQUEST_MARK
from programs import write
from serve_cases import Gateway
from vantrell import STEP_SECONDS, demand

PROMPT = REQUEST_MARK + "SAY:from the local model"


def begin_gateway(home):
    home.command("settings", "local-runtime", "custom")
    home.command("settings", "local-url", f"http://127.0.0.1:{home.port}/local/v1")
    return Gateway(home, provider="local")


def call(home, gateway, configure, *arguments):
    """The home's program with another home, in which the gateway is its model."""
    program = copy.copy(home.program)
    program.configure = lambda folder, _model: configure(folder, gateway)
    starter = program.home(home.folder / "caller", home.port)
    done = subprocess.run([str(starter), *arguments], cwd=home.project, stdin=subprocess.DEVNULL,
                          env=home.environment, capture_output=True, text=True,
                          timeout=STEP_SECONDS)
    demand(done.returncode == 0, f"it ended with {done.returncode}: {done.stdout}{done.stderr}")
    return [json.loads(line) for line in done.stdout.splitlines() if line.startswith("{")]


def configure_claude(home, gateway):
    write(home / ".claude.json", {"hasCompletedOnboarding": True})
    return {"ANTHROPIC_BASE_URL": f"http://127.0.0.1:{gateway.port}/anthropic",
            "ANTHROPIC_AUTH_TOKEN": gateway.key,
            "CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC": "1",
            "CLAUDE_CODE_MAX_RETRIES": "1"}


def configure_codex(home, gateway):
    write(home / ".codex/config.toml", f"""model = "gpt-5.5"
model_provider = "gateway"
check_for_update_on_startup = false

[model_providers.gateway]
name = "gateway"
base_url = "http://127.0.0.1:{gateway.port}/openai/v1"
wire_api = "responses"
env_key = "GATEWAY_KEY"
request_max_retries = 1
stream_max_retries = 1
supports_websockets = false

[analytics]
enabled = false
""")
    return {"GATEWAY_KEY": gateway.key}


@case("the gateway is the model of Claude Code: text comes back", "claude")
def claude_calls(home):
    gateway = begin_gateway(home)
    answer = call(home, gateway, configure_claude, "-p", PROMPT, "--output-format", "json")[-1]
    demand(answer["result"] == "from the local model" and not answer["is_error"],
           f"another answer: {answer}")
    gateway.stop()


@case("the gateway is the model of Codex: the turn ends and its tokens count", "codex")
def codex_calls(home):
    gateway = begin_gateway(home)
    events = call(home, gateway, configure_codex, "exec", "--json", "--skip-git-repo-check", PROMPT)
    ended = [each for each in events if each["type"] == "turn.completed"]
    demand(ended and ended[0]["usage"]["output_tokens"] == 10, f"no complete turn: {events}")
    # The documentation says so; when Codex takes the text from elsewhere, it is to be changed.
    demand(not [each for each in events if each.get("item", {}).get("type") == "agent_message"],
           f"it shows the text: {events}")
    gateway.stop()
