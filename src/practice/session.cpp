#include "practice/session.h"

#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <span>

#include "platform/files/files.h"
#include "platform/values/uuid.h"

namespace vantrell::practice {
namespace {

struct Choice {
  std::string_view value;
  std::string_view name;
  std::string_view description;
};

constexpr Choice modes[] = {
    {"manual", "Ask", "Asks before it writes or runs anything."},
    {"auto", "Auto", "Writes and runs without asking."},
    {"yolo", "Full access", "Writes and runs without asking."},
};
constexpr Choice models[] = {
    {"practice", "Practice", "No model: follows directives, at reading speed."},
    {"practice-instant", "Practice, instant", "No model: follows directives, without pauses."},
};
constexpr Choice efforts[] = {
    {"default", "Default", "There is no model that could try harder."},
    {"high", "High", "Remembered, and of no effect: there is no model that could try harder."},
};

struct Option {
  std::string_view id;
  std::string_view name;
  std::string_view category;
  std::string Session::* value;
  std::span<const Choice> choices;
};

constexpr Option options[] = {
    {"mode", "Approvals", "mode", &Session::mode, modes},
    {"model", "Model", "model", &Session::model, models},
    {"effort", "Effort", "thought_level", &Session::effort, efforts},
};

std::optional<Session> decoded(std::string_view content, const std::string& id) {
  auto object = json::parseObject(content);
  if (!object || json::textOr(*object, "id", "") != id) return std::nullopt;
  const auto* history = json::array(*object, "history");
  const auto* folder = json::text(*object, "folder");
  if (!history || !folder) return std::nullopt;
  Session session{.id = id, .folder = *folder};
  for (const Option& option : options) {
    auto value = json::textOr(*object, option.id, session.*option.value);
    if (!session.setConfigOption(option.id, value)) return std::nullopt;
  }
  for (const Json& one : *history) {
    const auto* item = one.asObject();
    if (!item || !json::text(*item, "sessionUpdate")) return std::nullopt;
    session.history.push_back(*item);
    // A tool call that was under way when its process ended will not go on.
    const auto* status = json::text(*item, "status");
    if (status && *status != "completed") session.history.back().set("status", "failed");
  }
  return session;
}

}  // namespace

bool Session::asksFor(std::string_view toolKind) const {
  return mode == "manual" && !allowedKinds.contains(toolKind);
}

Json::Array Session::configOptions() const {
  Json::Array list;
  for (const Option& option : options) {
    Json::Array choices;
    for (const Choice& choice : option.choices) {
      choices.emplace_back(JsonObject{
          {"value", choice.value}, {"name", choice.name}, {"description", choice.description}});
    }
    list.emplace_back(JsonObject{{"id", option.id},
                                 {"name", option.name},
                                 {"category", option.category},
                                 {"type", "select"},
                                 {"currentValue", this->*option.value},
                                 {"options", std::move(choices)}});
  }
  return list;
}

std::expected<void, RpcError> Session::setConfigOption(std::string_view configId,
                                                       std::string_view value) {
  const auto* option = std::ranges::find(options, configId, &Option::id);
  if (option == std::end(options)) {
    return std::unexpected(
        RpcError{RpcError::invalidParams, fmt::format("There is no option \"{}\".", configId)});
  }
  if (std::ranges::find(option->choices, value, &Choice::value) == option->choices.end()) {
    std::string known;
    for (const Choice& choice : option->choices) {
      known += fmt::format("{}{}", known.empty() ? "" : ", ", choice.value);
    }
    return std::unexpected(RpcError{
        RpcError::invalidParams,
        fmt::format("\"{}\" is no value of \"{}\"; it takes {}.", value, configId, known)});
  }
  this->*option->value = value;
  return {};
}

std::expected<void, RpcError> SessionStore::save(const Session& session) const {
  JsonObject object{{"id", session.id}, {"folder", session.folder}};
  for (const Option& option : options) {
    object.set(std::string(option.id), session.*option.value);
  }
  object.set("history", Json::Array(session.history.begin(), session.history.end()));

  auto stored = files::createOwnerOnlyFolder(folder_);
  if (stored) {
    stored = files::writeAtomically(fmt::format("{}/{}.json", folder_, session.id),
                                    json::write(object), 0600);
  }
  if (stored) return {};
  return std::unexpected(
      RpcError{RpcError::internalError, "The session was not kept: " + stored.error().description});
}

std::expected<Session, RpcError> SessionStore::load(std::string_view id) const {
  // Only a UUID can name a session, so that an id cannot lead out of the folder.
  auto uuid = Uuid::parse(id);
  auto path = fmt::format("{}/{}.json", folder_, id);
  if (!uuid || !files::exists(path)) {
    return std::unexpected(
        RpcError{RpcError::resourceNotFound, fmt::format("There is no session \"{}\".", id)});
  }
  auto content = files::read(path);
  if (!content) {
    return std::unexpected(RpcError{RpcError::internalError, content.error().description});
  }
  auto session = decoded(*content, std::string(id));
  if (!session) {
    return std::unexpected(
        RpcError{RpcError::internalError, fmt::format("The file of session {} is damaged.", id)});
  }
  return *std::move(session);
}

}  // namespace vantrell::practice
