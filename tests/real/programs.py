"""The real agent programs: installs them once, and gives each test a home of its own for one.

They are installed into the user's cache folder with npm, each with what it needs in a folder of its
own, so that one that cannot be had takes no other with it. A home holds nothing but made-up keys and
the address of the stand-in model, which is the proxy as well and refuses every outside host: no
account is needed and nothing leaves the machine.
"""

import base64
import json
import os
import platform
import shutil
import subprocess
import tempfile
from pathlib import Path

INSTALL_SECONDS = 600

ARCHITECTURE = {"x86_64": "x64", "aarch64": "arm64"}.get(platform.machine(), platform.machine())


def cache_folder():
    cache = Path(os.environ.get("XDG_CACHE_HOME") or Path.home() / ".cache")
    return cache / "vantrell" / "real-programs"


class Unavailable(Exception):
    """A program that could not be installed; the text is why."""


class Program:
    """One provider of Vantrell and the program behind it."""

    def __init__(self, provider, label, setting, packages, entry, node, configure):
        self.provider = provider  # as in `vantrell run --provider`
        self.label = label  # in Vantrell's sentences
        self.setting = setting  # as in `vantrell settings`
        self.packages = packages
        self.entry = entry  # below the folder of the installation
        self.node = node  # None: a binary; else the interpreter
        self.configure = configure
        self.choice = ["--provider", provider]

    def folder(self):
        name = "+".join(each.replace("/", "-").lstrip("@") for each in self.packages)
        return cache_folder() / name

    def is_installed(self):
        return (self.folder() / self.entry).exists()

    def install(self):
        if self.is_installed():
            return
        npm = shutil.which("npm")
        if not npm:
            raise Unavailable("npm is not installed")
        folder = self.folder()
        folder.parent.mkdir(parents=True, exist_ok=True)
        # In place only when it is whole: a stopped installation must not look like one.
        with tempfile.TemporaryDirectory(prefix="installing-", dir=folder.parent) as unfinished:
            command = [npm, "install", "--no-fund", "--no-audit", "--no-package-lock", "--no-save",
                       "--prefix", unfinished, *self.packages]
            try:
                done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                      stderr=subprocess.STDOUT, text=True, timeout=INSTALL_SECONDS)
            except subprocess.TimeoutExpired:
                raise Unavailable(f"npm took more than {INSTALL_SECONDS} seconds") from None
            if done.returncode != 0 or not (Path(unfinished) / self.entry).exists():
                raise Unavailable("npm could not install it: " + done.stdout.strip()[-1000:])
            if not folder.exists():
                os.rename(Path(unfinished), folder)
                Path(unfinished).mkdir()  # for the clean-up

    def home(self, folder, port):
        """Writes the home of the program and its starter; returns the starter's path."""
        home = folder / "agent-home"
        home.mkdir(parents=True)
        model = f"http://127.0.0.1:{port}"
        environment = {
            "HOME": str(home),
            "XDG_CONFIG_HOME": str(home / ".config"),
            "XDG_DATA_HOME": str(home / ".local/share"),
            "XDG_STATE_HOME": str(home / ".local/state"),
            "XDG_CACHE_HOME": str(home / ".cache"),
            "NO_PROXY": "127.0.0.1,localhost",
            "no_proxy": "127.0.0.1,localhost",
        }
        for name in ("HTTP_PROXY", "HTTPS_PROXY", "http_proxy", "https_proxy"):
            environment[name] = model
        environment |= self.configure(home, model)
        command = [str(self.folder() / self.entry)]
        if self.node:
            command.insert(0, self.node(self.folder()))
        lines = [f"export {name}='{value}'" for name, value in environment.items()]
        quoted = " ".join(f"'{word}'" for word in command)
        starter = folder / self.provider
        starter.write_text("\n".join(["#!/bin/sh", *lines, f'exec {quoted} "$@"', ""]))
        starter.chmod(0o755)
        return starter


def write(path, content):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(content if isinstance(content, str) else json.dumps(content, indent=2))


def unsigned_token(claims):
    parts = [json.dumps(part).encode() for part in ({"alg": "none"}, claims)]
    words = [base64.urlsafe_b64encode(part).rstrip(b"=").decode() for part in parts]
    return ".".join([*words, "bm90LXNpZ25lZA"])


# ---- homes --------------------------------------------------------------------------------------


def configure_codex(home, model):
    # A provider that requires a sign-in is treated like the vendor's own, allowance included.
    write(home / ".codex/config.toml", f"""model = "gpt-5.5"
model_provider = "stand-in"
chatgpt_base_url = "{model}/backend-api/"
check_for_update_on_startup = false

[model_providers.stand-in]
name = "stand-in"
base_url = "{model}/v1"
wire_api = "responses"
requires_openai_auth = true
request_max_retries = 1
stream_max_retries = 1
supports_websockets = false

[analytics]
enabled = false
""")
    token = unsigned_token({
        "email": "nobody@example.invalid",
        "exp": 4102444800,  # 2100
        "https://api.openai.com/auth": {
            "chatgpt_plan_type": "plus",
            "chatgpt_user_id": "nobody",
            "chatgpt_account_id": "none",
        },
    })
    write(home / ".codex/auth.json", {
        "auth_mode": "chatgpt",
        "OPENAI_API_KEY": None,
        "tokens": {"id_token": token, "access_token": token, "refresh_token": "none",
                   "account_id": "none"},
        "last_refresh": "2099-01-01T00:00:00Z",
    })
    return {"CODEX_REFRESH_TOKEN_URL_OVERRIDE": f"{model}/oauth/token"}


def configure_claude(home, model):
    # Vantrell keeps ANTHROPIC_* out of the environment, so the address comes in by the settings.
    write(home / ".claude/settings.json", {"env": {
        "ANTHROPIC_BASE_URL": model,
        "CLAUDE_CODE_OAUTH_TOKEN": "none",
        "CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC": "1",
        "CLAUDE_CODE_MAX_RETRIES": "1",
        "DISABLE_AUTOUPDATER": "1",
    }})
    write(home / ".claude.json", {"hasCompletedOnboarding": True})
    return {}


def configure_opencode(home, model):
    models = {
        "glm-4.7": {"name": "GLM-4.7", "tool_call": True,
                    "limit": {"context": 200000, "output": 32000}},
        "glm-4.5-air": {"name": "GLM-4.5-Air", "tool_call": True,
                        "limit": {"context": 128000, "output": 32000}},
    }
    write(home / ".config/opencode/opencode.json", {
        "autoupdate": False,
        "share": "disabled",
        "model": "zai-coding-plan/glm-4.7",
        "enabled_providers": ["zai-coding-plan"],
        "permission": {"bash": "ask", "edit": "ask"},  # by default it asks for neither
        "provider": {"zai-coding-plan": {
            "npm": "@ai-sdk/openai-compatible",
            "name": "Z.AI Coding Plan",
            "options": {"baseURL": f"{model}/v1", "apiKey": "none"},
            "models": models,
        }},
    })
    return {"OPENCODE_DISABLE_AUTOUPDATE": "1", "OPENCODE_DISABLE_MODELS_FETCH": "1"}


def configure_kimi(home, model):
    write(home / ".kimi-code/config.toml", f"""default_model = "stand-in"
telemetry = false

[loop_control]
max_attempts_per_step = 2

[providers.stand-in]
type = "openai"
base_url = "{model}/v1"
api_key = "none"

[models.stand-in]
provider = "stand-in"
model = "kimi-for-coding"
max_context_size = 200000

[models.second]
provider = "stand-in"
model = "kimi-second"
max_context_size = 200000
""")
    return {"KIMI_CODE_NO_AUTO_UPDATE": "1"}


# ---- the programs -------------------------------------------------------------------------------


def system_node(_folder):
    return shutil.which("node") or "node"


def own_node(folder):
    """Kimi Code needs a newer Node.js than Debian has."""
    return str(folder / f"node_modules/node-linux-{ARCHITECTURE}/bin/node")


PROGRAMS = {program.provider: program for program in (
    Program("codex", "Codex", "codex-path", ["@openai/codex@0.169.0"],
            "node_modules/@openai/codex/bin/codex.js", system_node, configure_codex),
    Program("claude", "Claude", "claude-path", ["@anthropic-ai/claude-code@2.1.197"],
            "node_modules/.bin/claude", None, configure_claude),
    Program("glm", "GLM", "opencode-path", ["opencode-ai@1.18.33"],
            "node_modules/.bin/opencode", None, configure_opencode),
    Program("kimi", "Kimi", "kimi-path",
            ["@moonshot-ai/kimi-code@2.1.0", f"node-linux-{ARCHITECTURE}@22.23.3"],
            "node_modules/@moonshot-ai/kimi-code/dist/main.mjs", own_node, configure_kimi),
)}
