"""A stand-in for the models behind the agents, on a port of this machine.

What it does is written in the user's latest request, each directive at the start of a line:

  SAY:text            streams the text in pieces
  RUN:command         has the agent run a shell command, then says "DONE: " and what came of it
  WRITE:path=content  has the agent write a file, then the same
  BOTH:one;two        two shell commands in one answer
  RECALL              says which requests the conversation had before this one
  MODEL               says which model and effort it was asked for
  SLOW:seconds        a tick every so many seconds, 100 times
  LIMIT               the vendor's answer when the allowance is spent; LIMIT:responses only in that
                      dialect (responses, messages or completions)
  BUSY                the answer of a server that is busy for everybody: 429 without a word of the
                      allowance
  SEARCH:query        searches the web itself, as Codex's model can
  ASK:question;a;b    has Claude Code ask its user that, with these choices, then says "DONE: "
  FAIL:status         that HTTP status

It speaks the streaming dialects of the OpenAI Responses API (Codex), of Anthropic Messages (Claude
Code) and of OpenAI chat completions (OpenCode, Kimi Code), as far as these programs use them. As
their proxy it refuses every outside host.
"""

import gzip
import json
import threading
import time
import uuid
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

from conversation import read_completions, read_messages, read_responses

TICKS = 100
PIECES = 4  # of a text
PAUSE = 0.02  # seconds between the pieces

# ---- answers: each dialect is given the steps, and an object that sends events ------------------


def pieces(text):
    size = max(1, -(-len(text) // PIECES))
    for at in range(0, len(text), size):
        yield text[at:at + size]
        time.sleep(PAUSE)


def words_of(step):
    """The pieces of a step that speaks."""
    if step[0] == "say":
        yield from pieces(step[1])
    else:
        for number in range(TICKS):
            yield f"tick {number} "
            time.sleep(step[1])


def new_id(kind):
    return f"{kind}_{uuid.uuid4().hex[:16]}"


def answer_responses(steps, model, send):
    answer = {"id": new_id("resp"), "object": "response", "model": model, "status": "in_progress",
              "output": []}
    send({"type": "response.created", "response": answer})
    output = []
    for index, step in enumerate(steps):
        if step[0] == "call":
            item = {"id": new_id("fc"), "call_id": new_id("call"), "name": step[1],
                    "status": "completed"}
            if isinstance(step[2], str):
                item |= {"type": "custom_tool_call", "input": step[2]}
            else:
                item |= {"type": "function_call", "arguments": json.dumps(step[2])}
        elif step[0] == "search":
            item = {"id": new_id("ws"), "type": "web_search_call", "status": "in_progress"}
            send({"type": "response.output_item.added", "output_index": index, "item": item})
            item |= {"status": "completed", "action": {"type": "search", "query": step[1]}}
        else:
            item = {"id": new_id("msg"), "type": "message", "role": "assistant", "content": []}
            at = {"item_id": item["id"], "output_index": index, "content_index": 0}
            send({"type": "response.output_item.added", "output_index": index, "item": item})
            send({"type": "response.content_part.added", **at,
                  "part": {"type": "output_text", "text": "", "annotations": []}})
            text = ""
            for piece in words_of(step):
                text += piece
                send({"type": "response.output_text.delta", **at, "delta": piece})
            send({"type": "response.output_text.done", **at, "text": text})
            item = item | {"status": "completed", "content": [
                {"type": "output_text", "text": text, "annotations": []}]}
        if step[0] == "call":
            send({"type": "response.output_item.added", "output_index": index, "item": item})
        send({"type": "response.output_item.done", "output_index": index, "item": item})
        output.append(item)
    usage = {"input_tokens": 10, "output_tokens": 10, "total_tokens": 20,
             "input_tokens_details": {"cached_tokens": 0},
             "output_tokens_details": {"reasoning_tokens": 0}}
    send({"type": "response.completed",
          "response": answer | {"status": "completed", "output": output, "usage": usage}})


def answer_messages(steps, model, send):
    usage = {"input_tokens": 10, "output_tokens": 1}
    send({"type": "message_start", "message": {
        "id": new_id("msg"), "type": "message", "role": "assistant", "model": model, "content": [],
        "stop_reason": None, "stop_sequence": None, "usage": usage}})
    for index, step in enumerate(steps):
        is_call = step[0] == "call"
        block = ({"type": "tool_use", "id": new_id("toolu"), "name": step[1], "input": {}}
                 if is_call else {"type": "text", "text": ""})
        send({"type": "content_block_start", "index": index, "content_block": block})
        for piece in pieces(json.dumps(step[2])) if is_call else words_of(step):
            delta = ({"type": "input_json_delta", "partial_json": piece}
                     if is_call else {"type": "text_delta", "text": piece})
            send({"type": "content_block_delta", "index": index, "delta": delta})
        send({"type": "content_block_stop", "index": index})
    reason = "tool_use" if any(step[0] == "call" for step in steps) else "end_turn"
    send({"type": "message_delta", "usage": {"output_tokens": 10},
          "delta": {"stop_reason": reason, "stop_sequence": None}})
    send({"type": "message_stop"})


def answer_completions(steps, model, send):
    base = {"id": new_id("chatcmpl"), "object": "chat.completion.chunk", "model": model,
            "created": int(time.time())}

    def delta(value, finish=None):
        send(base | {"choices": [{"index": 0, "delta": value, "finish_reason": finish}]})

    delta({"role": "assistant", "content": ""})
    finish = "stop"
    calls = 0
    for step in steps:
        if step[0] != "call":
            for piece in words_of(step):
                delta({"content": piece})
            continue
        finish = "tool_calls"
        delta({"tool_calls": [{"index": calls, "id": new_id("call"), "type": "function",
                               "function": {"name": step[1], "arguments": ""}}]})
        for piece in pieces(json.dumps(step[2])):
            delta({"tool_calls": [{"index": calls, "function": {"arguments": piece}}]})
        calls += 1
    delta({}, finish)
    send(base | {"choices": [], "usage": {"prompt_tokens": 10, "completion_tokens": 10,
                                          "total_tokens": 20}})
    send("[DONE]")


def whole_completion(steps, model):
    """The answer to a caller that wants no stream, as the gateway does."""
    text = "".join(piece for step in steps if step[0] == "say" for piece in words_of(step))
    return {"id": new_id("chatcmpl"), "object": "chat.completion", "model": model,
            "choices": [{"index": 0, "message": {"role": "assistant", "content": text},
                         "finish_reason": "stop"}],
            "usage": {"prompt_tokens": 10, "completion_tokens": 10, "total_tokens": 20}}


DIALECTS = {
    "/responses": (read_responses, answer_responses),
    "/messages": (read_messages, answer_messages),
    "/chat/completions": (read_completions, answer_completions),
}


# ---- allowances ---------------------------------------------------------------------------------

USED_PERCENT = {"primary": 13, "secondary": 40}  # of Codex, in an ordinary answer


def codex_headers(used):
    reset = str(int(time.time()) + 3600)
    headers = {}
    for window, minutes in (("primary", "300"), ("secondary", "10080")):
        headers[f"x-codex-{window}-used-percent"] = str(used[window])
        headers[f"x-codex-{window}-window-minutes"] = minutes
        headers[f"x-codex-{window}-reset-at"] = reset
    return headers


def codex_usage():
    window = {"limit_window_seconds": 18000, "reset_after_seconds": 3600,
              "reset_at": int(time.time()) + 3600}
    return {
        "plan_type": "plus",
        "rate_limit": {
            "allowed": True, "limit_reached": False,
            "primary_window": window | {"used_percent": USED_PERCENT["primary"]},
            "secondary_window": window | {"used_percent": USED_PERCENT["secondary"]},
        },
        "credits": {"has_credits": False, "unlimited": False, "balance": "0"},
    }


def claude_headers(status):
    reset = str(int(time.time()) + 3600)
    used = "1.0" if status == "rejected" else "0.12"
    values = {"status": status, "reset": reset, "representative-claim": "five_hour",
              "5h-status": status, "5h-reset": reset, "5h-utilization": used,
              "7d-status": "allowed", "7d-reset": reset, "7d-utilization": "0.4",
              "overage-status": "rejected"}
    return {f"anthropic-ratelimit-unified-{name}": value for name, value in values.items()}


def failure(dialect, status):
    """The headers and the body of a failed answer."""
    if status == "busy":
        error = {"type": "rate_limit_error", "message": "Too many requests. Please try again later."}
        is_claude = dialect == "/messages"
        headers = {"x-should-retry": "false"} if is_claude else {}
        return headers, {"type": "error", "error": error} if is_claude else {"error": error}
    is_limit = status == 429
    if dialect == "/messages":
        kind = {429: "rate_limit_error", 401: "authentication_error"}.get(status, "api_error")
        text = "The usage limit is reached." if is_limit else "The stand-in fails on purpose."
        headers = {"x-should-retry": "false"} | (claude_headers("rejected") if is_limit else {})
        return headers, {"type": "error", "error": {"type": kind, "message": text}}
    if is_limit:
        error = {"type": "usage_limit_reached", "code": "usage_limit_reached", "plan_type": "plus",
                 "message": "The usage limit has been reached", "resets_in_seconds": 3600,
                 "resets_at": int(time.time()) + 3600}
        return codex_headers({"primary": 100, "secondary": 40}), {"error": error}
    kind, text = (("authentication_error", "Incorrect API key provided.") if status == 401
                  else ("server_error", "The stand-in fails on purpose."))
    return {}, {"error": {"type": kind, "code": "stand_in", "message": text}}


# ---- the server ---------------------------------------------------------------------------------


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *_arguments):
        pass

    def reply(self, status, value, headers=None):
        data = json.dumps(value).encode()
        self.send_response(status)
        for name, text in (headers or {}).items():
            self.send_header(name, text)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def do_CONNECT(self):
        self.close_connection = True
        self.reply(403, {"error": {"message": "Outside hosts are refused."}})

    def is_for_others(self):
        if self.path.startswith("/"):
            return False
        self.do_CONNECT()
        return True

    def do_HEAD(self):
        self.send_response(200)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def do_GET(self):
        if self.is_for_others():
            return
        path = self.path.split("?")[0]
        if path.endswith("/wham/usage"):
            self.reply(200, codex_usage())
        elif path == "/local/v1/models":  # of a server of local models, for the gateway
            self.reply(200, {"object": "list", "data": [{"id": "stand-in", "object": "model"}]})
        elif path.endswith("/models"):
            self.reply(200, {"object": "list", "data": [], "models": []})
        else:
            self.reply(404, {"error": {"message": "There is no such thing here."}})

    def do_POST(self):
        data = self.read_body()
        if self.is_for_others():
            return
        path = self.path.split("?")[0]
        dialect = next((each for each in DIALECTS if path.endswith(each)), None)
        if path.endswith("/oauth/token"):
            error = {"code": "refresh_token_expired", "message": "The refresh token has expired."}
            return self.reply(401, {"error": error})
        if not dialect:
            return self.reply(200, {"input_tokens": 10} if path.endswith("/count_tokens") else {})
        body = json.loads(data)
        read, answer = DIALECTS[dialect]
        steps = read(body).steps()
        if steps[0][0] == "fail":
            status = steps[0][1]
            headers, error = failure(dialect, status)
            return self.reply(429 if status == "busy" else status, error, headers)
        if dialect == "/chat/completions" and not body.get("stream"):
            return self.reply(200, whole_completion(steps, body["model"]))
        self.stream(dialect, body, steps, answer)

    do_PUT = do_PATCH = do_DELETE = do_POST

    def read_body(self):
        if "chunked" in self.headers.get("Transfer-Encoding", ""):
            data = b""
            while size := int(self.rfile.readline().split(b";")[0], 16):
                data += self.rfile.read(size)
                self.rfile.readline()
            self.rfile.readline()
        else:
            data = self.rfile.read(int(self.headers.get("Content-Length") or 0))
        return gzip.decompress(data) if self.headers.get("Content-Encoding") == "gzip" else data

    def stream(self, dialect, body, steps, answer):
        self.close_connection = True
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Connection", "close")
        headers = {"/responses": lambda: codex_headers(USED_PERCENT),
                   "/messages": lambda: claude_headers("allowed")}.get(dialect, dict)()
        for name, text in headers.items():
            self.send_header(name, text)
        self.end_headers()

        def send(event):
            name = event.get("type") if isinstance(event, dict) else None
            line = f"event: {name}\n" if name else ""
            text = event if isinstance(event, str) else json.dumps(event)
            self.wfile.write(f"{line}data: {text}\n\n".encode())
            self.wfile.flush()

        try:
            answer(steps, body.get("model", "stand-in"), send)
        except (BrokenPipeError, ConnectionResetError):
            pass  # the agent was stopped


class ModelServer(ThreadingHTTPServer):
    daemon_threads = True

    def __init__(self):
        super().__init__(("127.0.0.1", 0), Handler)
        self.port = self.server_address[1]
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def handle_error(self, _request, _client):
        pass  # an agent that went away in the middle of a request
