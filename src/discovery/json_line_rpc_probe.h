// A short talk with a program over JSON-RPC, one object a line: requests and their answers alone.
// What the program asks or tells by itself is dropped. Main queue, where every answer comes too.
#pragma once

#include <chrono>
#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "platform/process/process_options.h"
#include "platform/queues/dispatch.h"
#include "platform/values/json.h"

namespace vantrell {

class JSONLineRPCProbe : public std::enable_shared_from_this<JSONLineRPCProbe> {
 public:
  /// The main queue must outlive the pool.
  JSONLineRPCProbe(MainQueue& main, BackgroundPool& pool)
      : main_(main), queue_(pool, "com.local.vantrell.session-rpc-probe") {}
  /// close().
  ~JSONLineRPCProbe();
  JSONLineRPCProbe(const JSONLineRPCProbe&) = delete;
  JSONLineRPCProbe& operator=(const JSONLineRPCProbe&) = delete;

  /// The options are asked for off the main queue. A program that cannot be started, or ends, fails
  /// every request.
  void start(std::function<ProcessOptions()> options);
  /// The "result" of the answer; an error is a sentence for the user.
  using Completion = std::function<void(std::expected<JsonObject, std::string>)>;
  void request(std::string_view method, JsonObject params, Completion completion);
  void write(JsonObject message);
  /// Ends the program. What is under way is not answered any more.
  void close();

  static constexpr std::chrono::seconds requestLimit{10};
  static constexpr std::string_view timedOut =
      "The provider did not answer the session-list request in time.";

 private:
  struct Link;
  struct Waiter {
    Completion completion;
    Timer limit;
  };
  void answer(std::int64_t id, const std::expected<JsonObject, std::string>& result);
  void failAll(const std::string& reason);

  MainQueue& main_;
  const SerialQueue queue_;
  std::shared_ptr<Link> link_;  // to the process; its content belongs to the queue
  std::int64_t nextRequestID_ = 1;
  std::map<std::int64_t, Waiter> waiters_;
};

}  // namespace vantrell
