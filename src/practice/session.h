// One conversation with the practice agent, and the folder that keeps conversations so that a new
// process can take them up again. Plain values; the store touches one small file a call.
#pragma once

#include <expected>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/values/json.h"
#include "practice/acp_host.h"

namespace vantrell::practice {

struct Session {
  std::string id;      // a UUID
  std::string folder;  // absolute path of the project
  std::string mode = "manual";
  std::string model = "practice";
  std::string effort = "default";
  /// What was said and done: one session update for each message and tool call, as it is replayed.
  std::vector<JsonObject> history;
  /// Kinds of tool calls that were allowed "always"; for as long as the process runs.
  std::set<std::string, std::less<>> allowedKinds;

  /// "manual" asks before it acts; "auto" and "yolo" do not.
  bool asksFor(std::string_view toolKind) const;
  /// The options that a host can offer, with their present values.
  Json::Array configOptions() const;
  /// Sets one of them; the error tells what would have been possible.
  std::expected<void, RpcError> setConfigOption(std::string_view configId, std::string_view value);
};

class SessionStore {
 public:
  /// Keeps one owner-only file a session in the folder, which is made when it is missing.
  explicit SessionStore(std::string folder) : folder_(std::move(folder)) {}

  std::expected<void, RpcError> save(const Session& session) const;
  /// Fails when there is no such session, or its file is not what save() wrote.
  std::expected<Session, RpcError> load(std::string_view id) const;

 private:
  std::string folder_;
};

}  // namespace vantrell::practice
