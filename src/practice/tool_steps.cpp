#include "practice/tool_steps.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
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

std::string nameOfChoice(const std::string& optionId) {
  const auto* found = std::ranges::find(permissionChoices, optionId, &PermissionChoice::id);
  return found == std::end(permissionChoices) ? optionId : found->name;
}

std::string newCallId() {
  return "call-" + Uuid::random().text();
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

ToolStep::ToolStep(StepContext context, Finish finish, ToolCall call)
    : Step(std::move(context), std::move(finish)), call_(std::move(call)) {}

void ToolStep::start() {
  transcript().beginTool(call_);
  begin();
}

void ToolStep::abandon() {
  if (!concluded_) transcript().updateTool(call_, "failed");
}

void ToolStep::askFirst(std::function<void()> next) {
  if (!transcript().session().asksFor(call_.kind)) {
    markInProgress();
    return next();
  }
  ask([this, next = std::move(next)](const std::string& optionId) {
    if (!isAllowance(optionId)) return conclude("failed", "You said no, so nothing was done.");
    if (optionId == "allow_always") transcript().session().allowedKinds.insert(call_.kind);
    markInProgress();
    next();
  });
}

void ToolStep::ask(std::function<void(const std::string&)> next) {
  Json::Array choices;
  for (const PermissionChoice& choice : permissionChoices) {
    choices.emplace_back(
        JsonObject{{"optionId", choice.id}, {"name", choice.name}, {"kind", choice.id}});
  }
  JsonObject toolCall{{"toolCallId", call_.id},
                      {"title", call_.title},
                      {"kind", call_.kind},
                      {"status", "pending"},
                      {"rawInput", call_.rawInput}};
  request("session/request_permission",
          {{"toolCall", std::move(toolCall)}, {"options", std::move(choices)}},
          [this, next = std::move(next)](const JsonObject& result) {
            const auto* outcome = json::object(result, "outcome");
            const auto* optionId = outcome ? json::text(*outcome, "optionId") : nullptr;
            if (optionId) return next(*optionId);
            // Withdrawn: the turn is being cancelled.
            abandon();
            concluded_ = true;
            finish({.kind = StepEnd::Kind::cancelled, .error = {}});
          });
}

void ToolStep::request(std::string_view method, JsonObject params, Next next) {
  params.set("sessionId", transcript().session().id);
  transcript().host().request(method, std::move(params),
                              weakly(this, [next = std::move(next), name = std::string(method)](
                                               ToolStep& step, const RpcAnswer& answer) {
                                if (step.concluded_) return;
                                if (answer) return next(*answer);
                                step.conclude("failed", fmt::format("The host refused {}: {}", name,
                                                                    answer.error().message));
                              }));
}

void ToolStep::conclude(std::string_view status, std::string_view words, std::string_view output) {
  concluded_ = true;
  transcript().updateTool(call_, status, output);
  transcript().say(words);
  finish();
}

AskStep::AskStep(StepContext context, Finish finish, std::string question)
    : ToolStep(std::move(context), std::move(finish),
               {.id = newCallId(),
                .title = question,
                .kind = "other",
                .rawInput = JsonObject{{"question", question}}}) {}

void AskStep::begin() {
  ask([this](const std::string& optionId) {
    conclude(isAllowance(optionId) ? "completed" : "failed",
             fmt::format("You answered: {}.", nameOfChoice(optionId)));
  });
}

ReadStep::ReadStep(StepContext context, Finish finish, const std::string& path)
    : ToolStep(context, std::move(finish),
               {.id = newCallId(),
                .title = "Read " + path,
                .kind = "read",
                .rawInput = JsonObject{{"path", path}}}),
      path_(files::standardized(path, context.transcript.session().folder)) {}

void ReadStep::begin() {
  if (!context().abilities.readsFiles) {
    return conclude("failed", "The host does not read files for its agents.");
  }
  markInProgress();
  request("fs/read_text_file", {{"path", path_}}, [this](const JsonObject& result) {
    auto content = json::textOr(result, "content", "");
    auto lineFeeds = std::ranges::count(content, '\n');
    auto lines = lineFeeds + (content.empty() || content.back() == '\n' ? 0 : 1);
    auto summary = fmt::format("{} has {} {}, {} bytes.", path_, lines,
                               lines == 1 ? "line" : "lines", content.size());
    if (content.empty()) return conclude("completed", summary);
    conclude("completed", fmt::format("{}\n\n{}", summary, quoted(content)));
  });
}

WriteStep::WriteStep(StepContext context, Finish finish, const std::string& path,
                     std::string content)
    : ToolStep(context, std::move(finish),
               {.id = newCallId(),
                .title = "Write " + path,
                .kind = "edit",
                .rawInput = JsonObject{{"path", path}, {"content", content}}}),
      path_(files::standardized(path, context.transcript.session().folder)),
      content_(std::move(content)) {}

void WriteStep::begin() {
  if (!context().abilities.writesFiles) {
    return conclude("failed", "The host does not write files for its agents.");
  }
  askFirst([this] {
    request("fs/write_text_file", {{"path", path_}, {"content", content_}},
            [this](const JsonObject&) {
              conclude("completed", fmt::format("Wrote {} bytes to {}.", content_.size(), path_));
            });
  });
}

RunStep::RunStep(StepContext context, Finish finish, std::string command)
    : ToolStep(std::move(context), std::move(finish),
               {.id = newCallId(),
                .title = "Run " + command,
                .kind = "execute",
                .rawInput = JsonObject{{"command", command}}}),
      command_(std::move(command)) {}

void RunStep::begin() {
  if (!context().abilities.hasTerminals) {
    return conclude("failed", "The host offers no terminals to its agents.");
  }
  askFirst([this] { createTerminal(); });
}

void RunStep::createTerminal() {
  auto& host = transcript().host();
  auto sessionId = transcript().session().id;
  JsonObject params{{"sessionId", sessionId},
                    {"command", "sh"},
                    {"args", Json::Array{"-c", command_}},
                    {"cwd", transcript().session().folder},
                    {"outputByteLimit", terminalOutputLimit}};
  host.request("terminal/create", std::move(params),
               [weak = weak_from_this(), &host, sessionId](const RpcAnswer& answer) {
                 if (auto step = weak.lock()) {
                   return static_cast<RunStep&>(*step).terminalCreated(answer);
                 }
                 // Cancelled meanwhile: the terminal is not wanted any more.
                 if (!answer) return;
                 auto id = json::textOr(*answer, "terminalId", "");
                 host.request("terminal/release", {{"sessionId", sessionId}, {"terminalId", id}});
               });
}

void RunStep::terminalCreated(const RpcAnswer& answer) {
  if (!answer) {
    return conclude("failed", "The host refused to run the command: " + answer.error().message);
  }
  terminalId_ = json::textOr(*answer, "terminalId", "");
  if (terminalId_.empty()) return conclude("failed", "The host's answer names no terminal.");
  waitForExit();
}

void RunStep::waitForExit() {
  request("terminal/wait_for_exit", terminal(), [this](const JsonObject& result) {
    const auto* exitCode = result.find("exitCode");
    reportOutput(exitCode ? *exitCode : Json());
  });
}

void RunStep::reportOutput(const Json& exitCode) {
  request("terminal/output", terminal(), [this, exitCode](const JsonObject& result) {
    auto output = json::textOr(result, "output", "");
    JsonObject release{{"sessionId", transcript().session().id}, {"terminalId", terminalId_}};
    transcript().host().request("terminal/release", std::move(release));
    terminalId_.clear();

    const auto* code = exitCode.asInteger();
    auto words = code ? fmt::format("The command exited with status {}.", *code)
                      : std::string("The command ended without a status.");
    if (json::boolean(result, "truncated").value_or(false)) {
      words += " The beginning of its output was dropped.";
    }
    if (!output.empty()) words += "\n\n" + quoted(output);
    conclude(code && *code == 0 ? "completed" : "failed", words,
             text::firstCharacters(output, charactersShown));
  });
}

void RunStep::abandon() {
  if (!terminalId_.empty()) {
    for (const char* method : {"terminal/kill", "terminal/release"}) {
      auto params = terminal();
      params.set("sessionId", transcript().session().id);
      transcript().host().request(method, std::move(params));
    }
  }
  ToolStep::abandon();
}

}  // namespace vantrell::practice
