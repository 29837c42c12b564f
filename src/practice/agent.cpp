#include "practice/agent.h"

#include <fmt/format.h>
#include <unistd.h>
#include <utility>

#include "platform/files/files.h"
#include "platform/values/uuid.h"

namespace vantrell::practice {
namespace {

constexpr int protocolVersion = 1;

std::unexpected<RpcError> invalid(std::string message) {
  return std::unexpected(RpcError{RpcError::invalidParams, std::move(message)});
}

/// The text blocks of a prompt, one below the other; other kinds mean nothing here.
std::string textOf(const Json::Array& prompt) {
  std::string all;
  for (const Json& block : prompt) {
    const auto* object = block.asObject();
    const auto* text = object ? json::text(*object, "text") : nullptr;
    if (!text) continue;
    if (!all.empty()) all += '\n';
    all += *text;
  }
  return all;
}

}  // namespace

PracticeAgent::PracticeAgent(MainQueue& queue, OutputWriter& output, AgentOptions options)
    : queue_(queue),
      output_(output),
      options_(std::move(options)),
      host_(output),
      store_(options_.stateFolder) {
  host_.onRequest = [this](const std::string& method, const JsonObject& params,
                           const AcpHost::Reply& reply) { handleRequest(method, params, reply); };
  host_.onNotification = [this](const std::string& method, const JsonObject& params) {
    if (method == "session/cancel") cancel(params);
  };
}

void PracticeAgent::handleRequest(const std::string& method, const JsonObject& params,
                                  const AcpHost::Reply& reply) {
  if (method == "initialize") return reply(initialize(params));
  if (method == "session/new") return reply(newSession(params));
  if (method == "session/load") return reply(loadSession(params));
  if (method == "session/set_config_option") return reply(setConfigOption(params));
  if (method == "session/prompt") return prompt(params, reply);
  reply(std::unexpected(
      RpcError{RpcError::methodNotFound, fmt::format("There is no method \"{}\".", method)}));
}

RpcAnswer PracticeAgent::initialize(const JsonObject& params) {
  if (const auto* host = json::object(params, "clientCapabilities")) {
    abilities_.hasTerminals = json::boolean(*host, "terminal").value_or(false);
    if (const auto* files = json::object(*host, "fs")) {
      abilities_.readsFiles = json::boolean(*files, "readTextFile").value_or(false);
      abilities_.writesFiles = json::boolean(*files, "writeTextFile").value_or(false);
    }
  }
  JsonObject promptAbilities{{"image", false}, {"audio", false}, {"embeddedContext", false}};
  return JsonObject{
      {"protocolVersion", protocolVersion},
      {"agentCapabilities",
       JsonObject{{"loadSession", true}, {"promptCapabilities", std::move(promptAbilities)}}},
      {"agentInfo", JsonObject{{"name", "vantrell-practice-agent"},
                               {"title", "Practice agent"},
                               {"version", options_.version}}},
      {"authMethods", Json::Array{}}};
}

RpcAnswer PracticeAgent::newSession(const JsonObject& params) {
  const auto* folder = json::text(params, "cwd");
  if (!folder || !folder->starts_with('/')) return invalid("\"cwd\" must be an absolute path.");
  Session session{.id = Uuid::random().text(), .folder = *folder, .mode = options_.mode};
  if (const auto* meta = json::object(params, "_meta")) {
    if (json::boolean(*meta, "autoMode").value_or(false)) session.mode = "auto";
    if (json::boolean(*meta, "yoloMode").value_or(false)) session.mode = "yolo";
  }
  if (auto saved = store_.save(session); !saved) return std::unexpected(saved.error());
  JsonObject result{{"sessionId", session.id}, {"configOptions", session.configOptions()}};
  auto id = session.id;
  sessions_[id] = std::make_unique<OpenSession>(host_, std::move(session));
  return result;
}

RpcAnswer PracticeAgent::loadSession(const JsonObject& params) {
  const auto* id = json::text(params, "sessionId");
  if (!id) return invalid("\"sessionId\" is missing.");
  auto found = sessions_.find(*id);
  if (found != sessions_.end() && found->second->turn) {
    return invalid("This session has a turn that is still running.");
  }
  auto session = store_.load(*id);
  if (!session) return std::unexpected(session.error());
  if (const auto* folder = json::text(params, "cwd")) session->folder = *folder;
  auto& open = sessions_[*id] = std::make_unique<OpenSession>(host_, *std::move(session));
  open->transcript.replay();
  return JsonObject{{"configOptions", open->session.configOptions()}};
}

RpcAnswer PracticeAgent::setConfigOption(const JsonObject& params) {
  auto open = openSession(params);
  if (!open) return std::unexpected(open.error());
  const auto* configId = json::text(params, "configId");
  const auto* value = json::text(params, "value");
  if (!configId || !value) return invalid("\"configId\" and \"value\" must be texts.");
  auto& session = (*open)->session;
  auto set = session.setConfigOption(*configId, *value);
  if (set) set = store_.save(session);
  if (!set) return std::unexpected(set.error());
  return JsonObject{{"configOptions", session.configOptions()}};
}

void PracticeAgent::prompt(const JsonObject& params, const AcpHost::Reply& reply) {
  auto open = openSession(params);
  if (!open) return reply(std::unexpected(open.error()));
  const auto* blocks = json::array(params, "prompt");
  if (!blocks) return reply(invalid("\"prompt\" must be a list of content blocks."));
  if ((*open)->turn) return reply(invalid("This session has a turn that is still running."));

  auto text = textOf(*blocks);
  OpenSession& opened = **open;
  opened.transcript.recordPrompt(text);
  keep(opened.session);  // so that the prompt is there even when the turn ends the process
  TurnContext context{.queue = queue_,
                      .transcript = opened.transcript,
                      .output = output_,
                      .abilities = abilities_,
                      .closeInput = options_.closeInput};
  opened.turn = std::make_shared<Turn>(
      std::move(context),
      [this, reply, &opened](const std::expected<std::string, RpcError>& result) {
        keep(opened.session);
        auto ended = std::exchange(opened.turn, nullptr);  // lives until this returns
        if (!result) return reply(std::unexpected(result.error()));
        reply(JsonObject{{"stopReason", *result}});
      });
  opened.turn->start(text);
}

void PracticeAgent::cancel(const JsonObject& params) {
  auto open = openSession(params);
  if (open && (*open)->turn) (*open)->turn->cancel();
}

void PracticeAgent::keepRunningSessions() {
  for (const auto& [id, open] : sessions_) {
    if (open->turn) keep(open->session);
  }
}

void PracticeAgent::keep(const Session& session) {
  auto saved = store_.save(session);
  if (!saved) output_.write(STDERR_FILENO, saved.error().message + "\n");
}

std::expected<PracticeAgent::OpenSession*, RpcError> PracticeAgent::openSession(
    const JsonObject& params) {
  const auto* id = json::text(params, "sessionId");
  auto found = id ? sessions_.find(*id) : sessions_.end();
  if (found != sessions_.end()) return found->second.get();
  return std::unexpected(
      RpcError{RpcError::resourceNotFound, id ? fmt::format("The session \"{}\" is not open.", *id)
                                              : "\"sessionId\" is missing."});
}

}  // namespace vantrell::practice
