#include "practice/practice_host.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <stdexcept>
#include <utility>

namespace vantrell::practice {

PracticeHost::PracticeHost(const std::string& stateHome, std::vector<std::string> arguments) {
  auto programs = std::filesystem::canonical("/proc/self/exe").parent_path();
  ProcessOptions options{.executable = programs / "vantrell-practice-agent",
                         .arguments = std::move(arguments),
                         .environment = currentEnvironment()};
  options.environment["XDG_STATE_HOME"] = stateHome;
  auto onMain = [this](auto body) {
    return [this, body](std::string_view bytes) {
      main_.post([body, copy = std::string(bytes)] { body(copy); });
    };
  };
  Process::Handlers handlers{
      .onOutput = onMain([this](std::string_view bytes) { handleOutput(bytes); }),
      .onError = onMain([this](std::string_view bytes) { errors += bytes; }),
      .onWriteError =
          [this](const ProcessError& error) { main_.post([this, error] { writeError = error; }); },
      .onExit = [this](ExitStatus status) { main_.post([this, status] { exit = status; }); }};
  auto started = Process::start(std::move(options), queue_, std::move(handlers));
  if (!started) throw std::runtime_error(started.error().description);
  process_ = *std::move(started);
}

PracticeHost::~PracticeHost() {
  process_->stop(std::chrono::milliseconds(0));
}

std::int64_t PracticeHost::send(std::string_view method, JsonObject params) {
  auto id = nextId_++;
  sendMessage({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", std::move(params)}});
  return id;
}

void PracticeHost::notify(std::string_view method, JsonObject params) {
  sendMessage({{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(params)}});
}

std::expected<JsonObject, std::string> PracticeHost::call(std::string_view method,
                                                          JsonObject params) {
  return waitFor(send(method, std::move(params)));
}

std::expected<JsonObject, std::string> PracticeHost::waitFor(std::int64_t id) {
  waitUntil([&] { return answers_.contains(id) || exit; });
  auto found = answers_.find(id);
  if (found == answers_.end()) return std::unexpected("no answer");
  if (const auto* error = json::object(found->second, "error")) {
    return std::unexpected(json::textOr(*error, "message", "no message"));
  }
  const auto* result = json::object(found->second, "result");
  return result ? *result : JsonObject();
}

void PracticeHost::open(const std::string& folder) {
  JsonObject files{{"readTextFile", true}, {"writeTextFile", true}};
  JsonObject abilities{{"fs", std::move(files)}, {"terminal", true}};
  ASSERT_TRUE(call("initialize", {{"protocolVersion", 1}, {"clientCapabilities", abilities}}));
  auto made = call("session/new", {{"cwd", folder}, {"mcpServers", Json::Array{}}});
  ASSERT_TRUE(made) << made.error();
  sessionId = json::textOr(*made, "sessionId", "");
  ASSERT_FALSE(sessionId.empty());
}

std::int64_t PracticeHost::sendPrompt(std::string_view text) {
  Json::Array prompt{JsonObject{{"type", "text"}, {"text", text}}};
  return send("session/prompt", {{"sessionId", sessionId}, {"prompt", std::move(prompt)}});
}

std::string PracticeHost::stopReason(std::int64_t promptId) {
  auto result = waitFor(promptId);
  return result ? json::textOr(*result, "stopReason", "none") : "error: " + result.error();
}

std::string PracticeHost::prompt(std::string_view text) {
  return stopReason(sendPrompt(text));
}

void PracticeHost::waitUntil(const std::function<bool()>& condition) {
  ASSERT_TRUE(main_.runUntil(condition)) << "waited in vain; standard error: " << errors;
}

ExitStatus PracticeHost::waitForExit() {
  waitUntil([&] { return exit.has_value(); });
  return exit.value_or(ExitStatus{.status = -1});
}

std::vector<JsonObject> PracticeHost::updatesOf(std::string_view kind) const {
  std::vector<JsonObject> found;
  for (const auto& update : updates) {
    if (json::textOr(update, "sessionUpdate", "") == kind) found.push_back(update);
  }
  return found;
}

std::string PracticeHost::said(std::string_view kind) const {
  std::string text;
  for (const auto& update : updatesOf(kind)) {
    if (const auto* content = json::object(update, "content")) {
      text += json::textOr(*content, "text", "");
    }
  }
  return text;
}

std::string PracticeHost::toolStatuses() const {
  std::string statuses;
  for (const auto& update : updates) {
    auto kind = json::textOr(update, "sessionUpdate", "");
    if (kind != "tool_call" && kind != "tool_call_update") continue;
    statuses += (statuses.empty() ? "" : " ") + json::textOr(update, "status", "none");
  }
  return statuses;
}

void PracticeHost::handleOutput(std::string_view bytes) {
  rest += bytes;
  std::size_t start = 0;
  for (auto end = rest.find('\n'); end != std::string::npos; end = rest.find('\n', start)) {
    handleLine(std::string_view(rest).substr(start, end - start));
    start = end + 1;
  }
  rest.erase(0, start);
}

void PracticeHost::handleLine(std::string_view line) {
  auto message = json::parseObject(line);
  if (!message) {
    strange.emplace_back(line);
    return;
  }
  if (const auto* method = json::text(*message, "method")) {
    if (message->find("id")) return handleRequest(*message, *method);
    const auto* params = json::object(*message, "params");
    const auto* update = params ? json::object(*params, "update") : nullptr;
    if (update) updates.push_back(*update);
  } else if (auto id = json::integer(*message, "id")) {
    answers_.insert_or_assign(*id, *std::move(message));
  }
}

void PracticeHost::handleRequest(const JsonObject& message, const std::string& method) {
  requests.push_back(method);
  JsonObject answer{{"jsonrpc", "2.0"}, {"id", *message.find("id")}};
  if (services) {
    auto result = services(method, *json::object(message, "params"));
    if (!result) return;
    answer.set("result", *std::move(result));
  } else {
    answer.set("error", JsonObject{{"code", -32603}, {"message", "not here"}});
  }
  sendMessage(answer);
}

void PracticeHost::sendMessage(const JsonObject& message) {
  process_->write(json::write(message) + "\n");
}

}  // namespace vantrell::practice
