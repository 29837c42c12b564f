#include "runtimes/claude/claude_permissions.h"

#include <fmt/format.h>

#include "platform/values/json_objects.h"
#include "runtimes/claude/claude_messages.h"

namespace vantrell {

namespace {

constexpr std::string_view denyOption = "claude-deny";
constexpr std::string_view allowOnceOption = "claude-allow-once";

std::string titleOf(const JsonObject& request) {
  for (const std::string_view key : {"display_name", "title", "tool_name"}) {
    if (const std::string* name = json::text(request, key)) return *name;
  }
  return "Use a tool";
}

std::string detailOf(const JsonObject& request, const JsonObject& input) {
  if (!input.empty()) return json::writePrettySorted(input);
  // A tool without input (the end of plan mode, say) would show as a pair of braces.
  return json::textOr(request, "description", "Claude Code needs permission to continue.");
}

/// The options of a question to the user have their number after this.
constexpr std::string_view choicePrefix = "claude-choice-";

std::string textOfQuestion(const JsonObject& question) {
  return json::textOr(question, "question", json::textOr(question, "header", "?"));
}

std::string labelOfChoice(const JsonObject& question, std::string_view optionID) {
  if (!optionID.starts_with(choicePrefix)) return {};
  const auto choices = json::objects(question, "options");
  for (std::size_t i = 0; i < choices.size(); ++i) {
    if (optionID == fmt::format("{}{}", choicePrefix, i))
      return json::textOr(*choices[i], "label", "");
  }
  return {};
}

}  // namespace

bool ClaudePermissions::isUserQuestion(const JsonObject& request) {
  return json::textOr(request, "tool_name", "") == "AskUserQuestion" &&
         !json::objects(json::objectOrEmpty(request, "input"), "questions").empty();
}

PermissionRequest ClaudePermissions::userQuestion(Pending pending) {
  const auto questions = json::objects(pending.input, "questions");
  const JsonObject& question = *questions[pending.answers.size()];
  PermissionRequest made;
  made.id = nextID_++;
  made.title = textOfQuestion(question);
  const auto choices = json::objects(question, "options");
  for (std::size_t i = 0; i < choices.size(); ++i) {
    const std::string label = json::textOr(*choices[i], "label", fmt::format("Choice {}", i + 1));
    if (const std::string* more = json::text(*choices[i], "description")) {
      if (!made.detail.empty()) made.detail += "\n";
      made.detail += label + ": " + *more;
    }
    made.options.push_back({fmt::format("{}{}", choicePrefix, i), label, "choice"});
  }
  if (made.detail.empty()) made.detail = json::textOr(question, "header", "Claude asks you.");
  made.options.push_back({std::string(denyOption), "Do not answer", "reject_once"});
  pending_.emplace(made.id, std::move(pending));
  return made;
}

PermissionRequest ClaudePermissions::ask(std::string controlRequestID, const JsonObject& request) {
  JsonObject input = json::objectOrEmpty(request, "input");
  if (isUserQuestion(request)) {
    const std::size_t count = json::objects(input, "questions").size();
    return userQuestion({std::move(controlRequestID), std::move(input), {}, count});
  }
  PermissionRequest made;
  made.id = nextID_++;
  made.title = titleOf(request);
  made.detail = detailOf(request, input);
  // Nothing that allows for good: rules that last lie in Claude Code's own settings.
  made.options = {{std::string(denyOption), "Deny", "reject_once"},
                  {std::string(allowOnceOption), "Allow once", "allow_once"}};
  pending_.emplace(made.id, Pending{std::move(controlRequestID), std::move(input), {}, 0});
  return made;
}

std::optional<std::variant<JsonObject, PermissionRequest>> ClaudePermissions::answer(
    std::int64_t id, std::string_view optionID) {
  auto node = pending_.extract(id);
  if (node.empty()) return std::nullopt;
  Pending& asked = node.mapped();
  if (asked.questionCount > 0) {
    const JsonObject& question = *json::objects(asked.input, "questions")[asked.answers.size()];
    std::string label = labelOfChoice(question, optionID);
    if (label.empty()) return claude::denyAnswer(std::move(asked.controlRequestID));
    asked.answers.set(textOfQuestion(question), std::move(label));
    if (asked.answers.size() < asked.questionCount) return userQuestion(std::move(asked));
    asked.input.set("answers", std::move(asked.answers));
    return claude::allowAnswer(std::move(asked.controlRequestID), std::move(asked.input));
  }
  return optionID == allowOnceOption
             ? claude::allowAnswer(std::move(asked.controlRequestID), std::move(asked.input))
             : claude::denyAnswer(std::move(asked.controlRequestID));
}

std::vector<JsonObject> ClaudePermissions::denyAll() {
  std::vector<JsonObject> denials;
  for (auto& [id, asked] : std::exchange(pending_, {})) {
    denials.push_back(claude::denyAnswer(std::move(asked.controlRequestID)));
  }
  return denials;
}

std::optional<std::int64_t> ClaudePermissions::withdraw(std::string_view controlRequestID) {
  const auto found = std::ranges::find_if(pending_, [controlRequestID](const auto& entry) {
    return entry.second.controlRequestID == controlRequestID;
  });
  if (found == pending_.end()) return std::nullopt;
  const auto id = found->first;
  pending_.erase(found);
  return id;
}

}  // namespace vantrell
