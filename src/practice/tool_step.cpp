#include "practice/tool_step.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

#include "platform/files/files.h"
#include "platform/queues/weakly.h"
#include "platform/text/text.h"
#include "platform/values/uuid.h"

namespace vantrell::practice {
namespace {

/// Enough to recognise a file or an output by; more would only fill the conversation.
constexpr std::size_t charactersShown = 2000;
constexpr int terminalOutputLimit = 100'000;  // bytes

struct PermissionChoice {
  const char* id;  // also its kind
  const char* name;
};
constexpr PermissionChoice permissionChoices[] = {
    {"allow_once", "Allow once"},
    {"allow_always", "Allow always"},
    {"reject_once", "Reject"},
};

bool isAllowance(std::string_view optionId) {
  return optionId.starts_with("allow");
}

/// A text as a Markdown block, cut when it is long. The fence is longer than any in the text.
std::string quoted(std::string_view whole) {
  auto shown = text::firstCharacters(whole, charactersShown);
  std::string fence = "```";
  while (shown.find(fence) != std::string_view::npos) fence += '`';
  const char* lineEnd = shown.empty() || shown.back() == '\n' ? "" : "\n";
  const char* rest = shown.size() < whole.size() ? "\n\nThe rest is left out here." : "";
  return fmt::format("{}\n{}{}{}{}", fence, shown, lineEnd, fence, rest);
}

}  // namespace

// ---- what it can be -----------------------------------------------------------------------------

void ToolStep::ask(const std::string& question) {
  begin(question, "other", {{"question", question}});
  askPermission([this](const std::string& optionId) {
    const auto* choice = std::ranges::find(permissionChoices, optionId, &PermissionChoice::id);
    conclude(isAllowance(optionId) ? "completed" : "failed",
             fmt::format("You answered: {}.",
                         choice == std::end(permissionChoices) ? optionId : choice->name));
  });
}

void ToolStep::read(const std::string& path) {
  begin("Read " + path, "read", {{"path", path}});
  if (!context_.abilities.readsFiles) {
    return conclude("failed", "The host does not read files for its agents.");
  }
  transcript().updateTool(callId_, "in_progress");
  request("fs/read_text_file", {{"path", inProject(path)}},
          [this, whole = inProject(path)](const JsonObject& result) {
            const auto content = json::textOr(result, "content", "");
            const auto lines = std::ranges::count(content, '\n') +
                               (content.empty() || content.back() == '\n' ? 0 : 1);
            conclude("completed", fmt::format("{} has {} {}, {} bytes.{}{}", whole, lines,
                                              lines == 1 ? "line" : "lines", content.size(),
                                              content.empty() ? "" : "\n\n",
                                              content.empty() ? "" : quoted(content)));
          });
}

void ToolStep::write(const std::string& path, const std::string& content) {
  begin("Write " + path, "edit", {{"path", path}, {"content", content}});
  if (!context_.abilities.writesFiles) {
    return conclude("failed", "The host does not write files for its agents.");
  }
  askFirst([this, whole = inProject(path), content] {
    request("fs/write_text_file", {{"path", whole}, {"content", content}},
            [this, whole, size = content.size()](const JsonObject&) {
              conclude("completed", fmt::format("Wrote {} bytes to {}.", size, whole));
            });
  });
}

void ToolStep::run(const std::string& command) {
  begin("Run " + command, "execute", {{"command", command}});
  if (!context_.abilities.hasTerminals) {
    return conclude("failed", "The host offers no terminals to its agents.");
  }
  askFirst([this, command] { createTerminal(command); });
}

// ---- its course ---------------------------------------------------------------------------------

void ToolStep::begin(std::string title, std::string kind, JsonObject rawInput) {
  callId_ = "call-" + Uuid::random().text();
  call_ = {{"toolCallId", callId_},
           {"title", std::move(title)},
           {"kind", std::move(kind)},
           {"rawInput", std::move(rawInput)}};
  transcript().beginTool(call_);
}

void ToolStep::conclude(std::string_view status, std::string_view words, std::string_view output) {
  const auto finish = std::exchange(finish_, {});
  transcript().updateTool(callId_, status, output);
  transcript().say(words);
  finish(false);
}

void ToolStep::abandon() {
  if (!std::exchange(finish_, {})) return;
  if (!terminalId_.empty()) {
    terminal("terminal/kill");
    terminal("terminal/release");
  }
  transcript().updateTool(callId_, "failed");
}

std::string ToolStep::inProject(const std::string& path) const {
  return files::standardized(path, context_.transcript.session().folder);
}

void ToolStep::request(std::string_view method, JsonObject params, Next next) {
  params.set("sessionId", sessionId_);
  host_.request(method, std::move(params),
                weakly(this, [next = std::move(next), name = std::string(method)](
                                 ToolStep& step, const RpcAnswer& answer) {
                  if (!step.finish_) return;
                  if (answer) return next(*answer);
                  step.conclude("failed", fmt::format("The host refused {}: {}", name,
                                                      answer.error().message));
                }));
}

void ToolStep::askFirst(std::function<void()> next) {
  const std::string kind = json::textOr(call_, "kind", "");
  auto begin = [this, next = std::move(next)] {
    transcript().updateTool(callId_, "in_progress");
    next();
  };
  if (!transcript().session().asksFor(kind)) return begin();
  askPermission([this, kind, begin = std::move(begin)](const std::string& optionId) {
    if (!isAllowance(optionId)) return conclude("failed", "You said no, so nothing was done.");
    if (optionId == "allow_always") transcript().session().allowedKinds.insert(kind);
    begin();
  });
}

void ToolStep::askPermission(std::function<void(const std::string&)> next) {
  Json::Array choices;
  for (const auto& [id, name] : permissionChoices) {
    choices.emplace_back(JsonObject{{"optionId", id}, {"name", name}, {"kind", id}});
  }
  JsonObject toolCall = call_;
  toolCall.set("status", "pending");
  request("session/request_permission",
          {{"toolCall", std::move(toolCall)}, {"options", std::move(choices)}},
          [this, next = std::move(next)](const JsonObject& result) {
            const auto* outcome = json::object(result, "outcome");
            const auto* optionId = outcome ? json::text(*outcome, "optionId") : nullptr;
            if (optionId) return next(*optionId);
            const auto finish = finish_;
            abandon();
            finish(true);
          });
}

// ---- commands -----------------------------------------------------------------------------------

void ToolStep::createTerminal(const std::string& command) {
  JsonObject params{{"sessionId", sessionId_},
                    {"command", "sh"},
                    {"args", Json::Array{"-c", command}},
                    {"cwd", transcript().session().folder},
                    {"outputByteLimit", terminalOutputLimit}};
  // Holds the step, so that a terminal that comes after the end of the turn is released.
  host_.request(
      "terminal/create", std::move(params), [self = shared_from_this()](const RpcAnswer& answer) {
        self->terminalId_ = answer ? json::textOr(*answer, "terminalId", "") : "";
        if (!self->finish_) {
          if (!self->terminalId_.empty()) self->terminal("terminal/release");
        } else if (!answer) {
          self->conclude("failed",
                         "The host refused to run the command: " + answer.error().message);
        } else if (self->terminalId_.empty()) {
          self->conclude("failed", "The host's answer names no terminal.");
        } else {
          self->terminal("terminal/wait_for_exit", [step = self.get()](const JsonObject& exited) {
            step->reportOutput(exited);
          });
        }
      });
}

void ToolStep::reportOutput(const JsonObject& exited) {
  terminal("terminal/output",
           [this, code = json::integer(exited, "exitCode")](const JsonObject& result) {
             terminal("terminal/release");
             const auto output = json::textOr(result, "output", "");
             auto words = code ? fmt::format("The command exited with status {}.", *code)
                               : std::string("The command ended without a status.");
             if (json::boolean(result, "truncated").value_or(false)) {
               words += " The beginning of its output was dropped.";
             }
             if (!output.empty()) words += "\n\n" + quoted(output);
             conclude(code == 0 ? "completed" : "failed", words,
                      text::firstCharacters(output, charactersShown));
           });
}

void ToolStep::terminal(const std::string& method, Next next) {
  JsonObject params{{"terminalId", terminalId_}};
  if (next) return request(method, std::move(params), std::move(next));
  params.set("sessionId", sessionId_);
  host_.request(method, std::move(params));
}

}  // namespace vantrell::practice
