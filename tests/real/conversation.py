"""What an agent has sent to its model, whatever the dialect, and what the stand-in makes of it."""

import json
import re

DIRECTIVE = re.compile(r"^(SAY|RUN|WRITE|LOOK|BOTH|RECALL|MODEL|SLOW|LIMIT|BUSY|FAIL|ASK|SEARCH)(?::(.*))?$", re.M)
# Behind it stand the user's own words, once for each request, also where an agent has joined two.
REQUEST_MARK = "USER REQUEST:\n"


def text_of(content):
    if isinstance(content, str):
        return content
    blocks = content if isinstance(content, list) else []
    return "\n".join(text_of(block.get("text") or block.get("content") or "")
                     for block in blocks if isinstance(block, dict))


class Conversation:
    """What an agent has sent: its items as (kind, text), kind being user, call, result or other."""

    def __init__(self, dialect, items, tools, body):
        self.dialect = dialect
        self.items = items
        self.model = body.get("model")
        settings = body.get("reasoning") or body.get("output_config") or {}
        self.effort = settings.get("effort") or "default"
        self.tools = tools  # name to parameters; None for a tool that takes a bare text
        self.requests = []  # (index of the item, the user's words)
        for index, (kind, text) in enumerate(items):
            if kind == "user" and REQUEST_MARK in text:
                self.requests += [(index, words) for words in text.split(REQUEST_MARK)[1:]]

    def steps(self):
        """What to do: a list of ("say", text), ("slow", seconds), ("search", query),
        ("call", name, arguments) and ("fail", status)."""
        if not self.requests:
            return [("say", "A title")]  # agents ask for one by themselves
        index, words = self.requests[-1]
        behind = [item for item in self.items[index + 1:] if item[0] in ("call", "result")]
        directives = DIRECTIVE.findall(words)
        calls = [call for name, argument in directives for call in self.calls(name, argument)]
        called = sum(kind == "call" for kind, _ in behind)
        if calls and called >= len(calls):
            return [("say", "DONE: " + " ".join(behind[-1][1].split())[:300])]
        steps = []
        for name, argument in directives:
            if name in ("RUN", "WRITE", "LOOK", "BOTH", "ASK"):
                wanted = self.calls(name, argument)
                if called < len(wanted):
                    return steps + wanted[called:]
                called -= len(wanted)
            elif behind:
                continue  # said before the call
            elif name == "SAY":
                steps.append(("say", argument))
            elif name == "RECALL":
                steps.append(("say", "RECALLED: " + "; ".join(
                    " ".join(earlier.split()) for _, earlier in self.requests[:-1])))
            elif name == "MODEL":
                steps.append(("say", f"MODEL: {self.model}, effort {self.effort}"))
            elif name == "LIMIT" and argument and argument != self.dialect:
                continue  # somebody else's
            elif name == "SEARCH":
                steps.append(("search", argument))
            elif name == "SLOW":
                steps.append(("slow", float(argument)))
            else:
                status = {"LIMIT": 429, "BUSY": "busy"}.get(name) or int(argument)
                return [("fail", status)]
        return steps or [("say", "There is nothing to do.")]

    def calls(self, name, argument):
        if name == "RUN":
            return [self.shell_call(argument)]
        if name == "BOTH":
            return [self.shell_call(command) for command in argument.split(";")]
        if name == "ASK":  # a question of Claude Code to its user
            question, *choices = argument.split(";")
            return [("call", "AskUserQuestion", {"questions": [{
                "question": question, "header": "Choice", "multiSelect": False,
                "options": [{"label": each, "description": f"{each} it is"} for each in choices]}]})]
        if name == "LOOK":  # at an image
            return [("call", "view_image", {"path": argument})]
        if name == "WRITE":
            return [self.write_call(*argument.split("=", 1))]
        return []

    def shell_call(self, command):
        if "exec_command" in self.tools:  # Codex asks when a command is to leave its sandbox
            return ("call", "exec_command", {"cmd": command,
                                             "sandbox_permissions": "require_escalated",
                                             "justification": "The test asks for it."})
        name = "Bash" if "Bash" in self.tools else "bash"
        return ("call", name, {"command": command, "description": "Run a command"})

    def write_call(self, path, content):
        if "apply_patch" in self.tools:
            patch = f"*** Begin Patch\n*** Add File: {path}\n+{content}\n*** End Patch\n"
            is_text = self.tools["apply_patch"] is None
            return ("call", "apply_patch", patch if is_text else {"input": patch})
        name = "Write" if "Write" in self.tools else "write"
        properties = self.tools.get(name, {}).get("properties", {})
        key = next((each for each in ("file_path", "filePath") if each in properties), "path")
        return ("call", name, {key: path, "content": content})


def read_responses(body):
    items = []
    for item in body.get("input") or []:
        kind = item.get("type", "message")
        if kind == "message":
            items.append((item.get("role"), text_of(item.get("content"))))
        elif kind.endswith("_output"):
            items.append(("result", text_of(item.get("output"))))
        elif kind.endswith("_call"):
            items.append(("call", ""))
    tools = {tool.get("name"): tool.get("parameters") for tool in body.get("tools") or []}
    return Conversation("responses", items, tools, body)


def read_messages(body):
    items = []
    for message in body.get("messages") or []:
        content = message.get("content")
        for block in [{"type": "text", "text": content}] if isinstance(content, str) else content:
            kind = {"tool_use": "call", "tool_result": "result"}.get(block.get("type"))
            text = block.get("content") if kind == "result" else block.get("text")
            items.append((kind or message.get("role"), text_of(text or "")))
    tools = {tool.get("name"): tool.get("input_schema") or {} for tool in body.get("tools") or []}
    return Conversation("messages", items, tools, body)


def read_completions(body):
    items = []
    for message in body.get("messages") or []:
        items += [("call", "")] * len(message.get("tool_calls") or [])
        role = message.get("role")
        items.append(("result" if role == "tool" else role, text_of(message.get("content"))))
    functions = [tool.get("function") or {} for tool in body.get("tools") or []]
    tools = {each.get("name"): each.get("parameters") or {} for each in functions}
    return Conversation("completions", items, tools, body)
