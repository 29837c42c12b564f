#include "runtimes/codex/codex_discovery.h"

#include "runtimes/codex/codex_messages.h"
#include "runtimes/codex/codex_models.h"
#include "runtimes/codex/codex_usage.h"
#include "runtimes/json_line_process.h"
#include "runtimes/json_rpc.h"
#include "runtimes/pending_requests.h"

namespace vantrell::CodexDiscovery {

namespace {

class Runner : public std::enable_shared_from_this<Runner> {
 public:
  Runner(Place place, MainQueue& main, BackgroundPool& pool,
         std::function<void(CodexDiscoveryResult)> completion)
      : place_(std::move(place)),
        main_(main),
        queue_(pool, "com.local.vantrell.codex-discovery"),
        completion_(std::move(completion)) {}

  void start() {
    timer_ = main_.after(timeLimit, [this, weak = weak_from_this()] {
      if (const auto self = weak.lock()) queue_.post([self] { self->finish(); });
    });
    queue_.post([self = shared_from_this()] { self->launch(); });
  }

 private:
  /// Absent for an error.
  using Answer = std::optional<JsonObject>;

  void launch() {
    ProcessOptions options;
    options.executable = place_.executable;
    options.arguments = {"app-server"};
    options.environment = place_.environment;
    options.workingFolder = place_.workspacePath;

    // The process holds this object until finish() lets go of it.
    const auto self = shared_from_this();
    JsonLineProcess::Handlers handlers;
    handlers.onMessage = [self](const JsonObject& message, std::size_t) { self->handle(message); };
    handlers.onEnd = [self](ExitStatus, const std::string&) { self->finish(); };
    auto process = JsonLineProcess::start(std::move(options), queue_,
                                          std::make_shared<Mailbox>(main_), std::move(handlers));
    if (!process) return finish();
    process_ = std::move(*process);
    request("initialize", codex::initializeParams("discovery"), [this](const Answer&) {
      process_->send(jsonrpc::notification("initialized"));
      ask();
    });
  }

  void ask() {
    request("model/list", {{"includeHidden", false}}, [this](const Answer& answer) {
      auto models = answer ? codex::modelOptions(*answer) : std::vector<ProviderModelOption>();
      if (!models.empty()) result_.models = std::move(models);
      receivedModels_ = true;
    });
    request("account/rateLimits/read", {}, [this](const Answer& answer) {
      if (answer) result_.usage = codex::parseRateLimits(*answer);
      receivedUsage_ = true;
    });
  }

  void request(std::string_view method, JsonObject params, std::function<void(Answer)> completion) {
    const std::int64_t id = pending_.add(std::move(completion));
    process_->send(jsonrpc::request(id, method, std::move(params)));
  }

  void handle(const JsonObject& message) {
    const auto id = json::integer(message, "id");
    if (!id || message.find("method") || isFinished_) return;
    const auto completion = pending_.take(*id);
    if (!completion) return;
    const JsonObject* result = json::object(message, "result");
    if (json::object(message, "error")) {
      (*completion)(std::nullopt);
    } else {
      (*completion)(result ? *result : JsonObject{});
    }
    if (receivedModels_ && receivedUsage_) finish();
  }

  void finish() {
    if (std::exchange(isFinished_, true)) return;
    if (process_) {
      process_->stop(JsonLineProcess::Ending::prompt);
      // This may be a call from within the process.
      queue_.post([process = std::move(process_)] {});
    }
    main_.post([self = shared_from_this(), result = std::move(result_)]() mutable {
      self->timer_.cancel();
      if (const auto completion = std::exchange(self->completion_, nullptr)) {
        completion(std::move(result));
      }
    });
  }

  const Place place_;
  MainQueue& main_;
  const SerialQueue queue_;

  // The main queue's.
  Timer timer_;
  std::function<void(CodexDiscoveryResult)> completion_;

  // The runner's queue's.
  std::unique_ptr<JsonLineProcess> process_;
  PendingRequests<Answer> pending_;
  CodexDiscoveryResult result_{codex::unknownModels(), std::nullopt};
  bool receivedModels_ = false;
  bool receivedUsage_ = false;
  bool isFinished_ = false;
};

}  // namespace

void run(Place place, MainQueue& main, BackgroundPool& pool,
         std::function<void(CodexDiscoveryResult)> completion) {
  std::make_shared<Runner>(std::move(place), main, pool, std::move(completion))->start();
}

}  // namespace vantrell::CodexDiscovery
