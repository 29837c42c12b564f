// The program at the other end of the pipes: JSON-RPC 2.0, one JSON object a line. Knows framing,
// ids and errors, and nothing of sessions. Main queue; lives as long as the process.
#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "platform/values/json.h"
#include "practice/output_writer.h"

namespace vantrell::practice {

/// An error as JSON-RPC 2.0 sends it; the codes are its own, and the last one is the Agent Client
/// Protocol's.
struct RpcError {
  static constexpr int parseError = -32700;
  static constexpr int invalidRequest = -32600;
  static constexpr int methodNotFound = -32601;
  static constexpr int invalidParams = -32602;
  static constexpr int internalError = -32603;
  static constexpr int resourceNotFound = -32002;

  int code = internalError;
  std::string message;
};

using RpcAnswer = std::expected<JsonObject, RpcError>;

class AcpHost {
 public:
  /// Answers one request of the host; called once.
  using Reply = std::function<void(RpcAnswer)>;
  using Completion = std::function<void(RpcAnswer)>;

  std::function<void(const std::string& method, const JsonObject& params, Reply reply)> onRequest;
  std::function<void(const std::string& method, const JsonObject& params)> onNotification;

  explicit AcpHost(OutputWriter& output) : output_(output) {}
  AcpHost(const AcpHost&) = delete;
  AcpHost& operator=(const AcpHost&) = delete;

  /// One line from the host. What cannot be understood is answered with an error.
  void receive(std::string_view line);
  /// `whenWritten` as with OutputWriter::write.
  void notify(std::string_view method, JsonObject params, Work whenWritten = {});

  /// `completion` may be empty when the answer does not matter.
  void request(std::string_view method, JsonObject params, Completion completion = {});

 private:
  void answer(const Json& id, const RpcAnswer& result);
  void handleResponse(const Json& id, const JsonObject& message);
  void send(const JsonObject& message, Work whenWritten = {});

  OutputWriter& output_;
  std::int64_t nextId_ = 1;
  std::map<std::int64_t, Completion> pending_;
};

}  // namespace vantrell::practice
