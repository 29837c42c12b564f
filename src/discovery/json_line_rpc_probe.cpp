#include "discovery/json_line_rpc_probe.h"

#include <utility>

#include "platform/queues/weakly.h"
#include "platform/values/json_objects.h"
#include "runtimes/wire/json_line_process.h"

namespace vantrell {

namespace {

std::expected<JsonObject, std::string> resultIn(const JsonObject& message) {
  if (const auto* error = message.find("error")) {
    const auto* object = error->asObject();
    const auto* text = object ? json::text(*object, "message") : nullptr;
    return std::unexpected(text ? *text : "The provider rejected session discovery.");
  }
  return json::objectOrEmpty(message, "result");
}

}  // namespace

struct JSONLineRPCProbe::Link {
  std::unique_ptr<JsonLineProcess> process;
};

JSONLineRPCProbe::~JSONLineRPCProbe() {
  close();
}

void JSONLineRPCProbe::start(std::function<ProcessOptions()> options) {
  link_ = std::make_shared<Link>();
  const auto onMessage = [&main = main_, weak = weak_from_this()](const JsonObject& message,
                                                                  std::size_t) {
    const auto id = json::integer(message, "id");
    if (!id || message.find("method")) return;
    main.post([weak, id = *id, result = resultIn(message)] {
      if (const auto self = weak.lock()) self->answer(id, result);
    });
  };
  const auto fail = [&main = main_, weak = weak_from_this()](std::string reason) {
    main.post([weak, reason = std::move(reason)] {
      if (const auto self = weak.lock()) self->failAll(reason);
    });
  };
  const auto onEnd = [fail](const JsonLineProcess::End& end) {
    fail(end.cause.empty() ? "Missing provider response." : end.cause);
  };
  queue_.post([link = link_, options = std::move(options), queue = queue_,
               mailbox = std::make_shared<Mailbox>(main_), onMessage, onEnd, fail] {
    auto started =
        JsonLineProcess::start(options(), queue, mailbox, {.onMessage = onMessage, .onEnd = onEnd});
    if (!started) return fail(started.error().description);
    link->process = std::move(*started);
  });
}

void JSONLineRPCProbe::write(JsonObject message) {
  queue_.post([link = link_, message = std::move(message)] {
    if (link && link->process) link->process->send(message);
  });
}

void JSONLineRPCProbe::request(std::string_view method, JsonObject params, Completion completion) {
  const auto id = nextRequestID_++;
  waiters_[id] = {std::move(completion), main_.after(requestLimit, [this, id] {
                    answer(id, std::unexpected(std::string(timedOut)));
                  })};
  write({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", std::move(params)}});
}

void JSONLineRPCProbe::answer(std::int64_t id,
                              const std::expected<JsonObject, std::string>& result) {
  const auto kept = shared_from_this();  // the call may release it
  if (const auto waiter = waiters_.extract(id)) waiter.mapped().completion(result);
}

void JSONLineRPCProbe::failAll(const std::string& reason) {
  const auto kept = shared_from_this();
  while (!waiters_.empty()) answer(waiters_.begin()->first, std::unexpected(reason));
}

void JSONLineRPCProbe::close() {
  waiters_.clear();
  const auto link = std::exchange(link_, nullptr);
  if (!link) return;
  queue_.post([link] {
    if (link->process) link->process->stop(JsonLineProcess::Ending::prompt);
  });
}

}  // namespace vantrell
