#!/usr/bin/env python3
"""An agent of the Agent Client Protocol that does what no good agent does. The last line of a prompt
says what, as DUPLICATE or SAY:text. Usage: odd_agent.py NAME FILE, which gets the prompts."""

import contextlib
import json
import sys
import time

NAME, PROMPTS = sys.argv[1:3]
HELD = []


def send(message):
    sys.stdout.write(json.dumps({"jsonrpc": "2.0", **message}) + "\n")
    if not HELD:
        sys.stdout.flush()


@contextlib.contextmanager
def held_back():
    """What is sent in it goes out at once."""
    HELD.append(True)
    yield
    HELD.clear()
    sys.stdout.flush()


def read():
    line = sys.stdin.readline()
    if not line:
        sys.exit(0)
    return json.loads(line)


def update(event, **members):
    send({"method": "session/update",
          "params": {"sessionId": "s", "update": {"sessionUpdate": event, **members}}})


def say(text):
    update("agent_message_chunk", content={"type": "text", "text": text})


def tool(event, **members):
    update(event, toolCallId="t", **members)


def ask(identifier, kinds, title="a question"):
    send({"id": identifier, "method": "session/request_permission", "params": {
        "sessionId": "s", "toolCall": {"toolCallId": "t", "title": title},
        "options": [{"optionId": kind, "name": kind, "kind": kind} for kind in kinds]}})


def answer():
    while "result" not in (message := read()):
        pass
    return message["result"]["outcome"].get("optionId", "none")


def die():
    sys.stderr.write("\x1b[0m")
    sys.exit(3)


class Failed(Exception):
    pass


def duplicate():
    with held_back():
        for _ in range(2):
            ask(7, ["allow_once", "reject_once"])
    say(f"answers {answer()} {answer()}; ")
    ask(8, ["allow_once", "reject_once"])
    say(f"third {answer()}")


def always_first():
    ask(7, ["reject_always", "reject_once", "allow_once"])
    say(f"answered {answer()}")


def untitled():
    tool("tool_call", title="Read notes.txt", kind="read", status="completed")
    tool("tool_call_update", content=[])
    say("read")


def parted():
    say("I look:\n```\ncode\n```")
    tool("tool_call", title="Read notes.txt", kind="read", status="completed")
    say("DONE and seen")


def limited():
    raise Failed("You have reached your usage limit.")


def limited_at_question():
    ask(1, ["allow_once", "reject_once"], f"of {NAME}")
    limited()


def late():
    """Says nothing until its turn is over."""
    return [lambda: (time.sleep(4), say("late words"))]


def terminal():
    """A terminal that is to keep a billion bytes."""
    send({"id": 9, "method": "terminal/create", "params": {
        "sessionId": "s", "command": "sh", "args": ["-c", "head -c 150000000 /dev/zero"],
        "outputByteLimit": 1000000000}})
    while (message := read()).get("id") != 9:
        pass
    terminal_id = message["result"]["terminalId"]
    for number, method in ((10, "wait_for_exit"), (11, "output")):
        send({"id": number, "method": f"terminal/{method}",
              "params": {"sessionId": "s", "terminalId": terminal_id}})
        while (message := read()).get("id") != number:
            pass
    result = message["result"]
    say(f"kept {len(result['output'])}, truncated {result['truncated']}")


ACTS = {"DUPLICATE": duplicate, "ALWAYS": always_first, "UNTITLED": untitled, "PARTED": parted,
        "LIMITED": limited, "LIMITED_AT_QUESTION": limited_at_question, "LATE": late, "DIE": die,
        "TERMINAL": terminal, "WAIT": lambda: time.sleep(3), "LONG": lambda: time.sleep(40)}

MODELS = {"id": "model", "name": "Model", "category": "model", "type": "select",
          "currentValue": "odd-one", "options": [{"value": "odd-one", "name": "Odd one"},
                                                 {"value": "odd-two", "name": "Odd two"}]}


def perform(text):
    afterwards = []
    for line in text.splitlines():
        word, _, argument = line.partition(":")
        mine = word.removesuffix("@" + NAME)
        if mine == "SAY":
            say(argument)
        elif mine == "ASK":
            ask(1, ["allow_once", "reject_once"], argument)
            say(f"answered {answer()}")
        elif mine in ACTS:
            afterwards += ACTS[mine]() or []
    return afterwards


def main():
    while True:
        message = read()
        method, identifier = message.get("method"), message.get("id")
        if identifier is None or not method:
            continue
        result = {}
        afterwards = []
        if method == "initialize":
            result = {"protocolVersion": 1, "agentCapabilities": {"loadSession": True}}
        elif method in ("session/new", "session/load"):
            if method == "session/load":  # plays back less than was said
                update("user_message_chunk", content={"type": "text", "text": "SAY:one"})
                say("one")
            result = {"sessionId": "s", "configOptions": [MODELS]}
        elif method == "session/prompt":
            text = "\n".join(block.get("text", "") for block in message["params"]["prompt"])
            with open(PROMPTS, "a", encoding="utf-8") as prompts:
                prompts.write(json.dumps(text) + "\n")
            try:
                afterwards = perform(text.rsplit("USER REQUEST:\n", 1)[-1].split("\n\n")[0])
                result = {"stopReason": "end_turn"}
            except Failed as failure:
                send({"id": identifier, "error": {"code": -32000, "message": str(failure)}})
                continue
        send({"id": identifier, "result": result})
        for each in afterwards:
            each()


if __name__ == "__main__":
    main()
