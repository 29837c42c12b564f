#include "runtimes/codex/codex_discovery.h"

#include "runtimes/codex/codex_messages.h"
#include "runtimes/codex/codex_models.h"
#include "runtimes/codex/codex_usage.h"
#include "runtimes/wire/json_line_process.h"
#include "runtimes/wire/json_rpc.h"
#include "runtimes/wire/pending_requests.h"

namespace vantrell::CodexDiscovery {

namespace {

/// One process: it is introduced to us, asked, and ended. Derived classes ask.
class Talk : public std::enable_shared_from_this<Talk> {
 public:
  virtual ~Talk() = default;

  void start(std::chrono::seconds limit) {
    timer_ = main_.after(limit, [this, weak = weak_from_this()] {
      if (const auto self = weak.lock()) queue_.post([self] { self->finish(); });
    });
    queue_.post([self = shared_from_this()] { self->launch(); });
  }

 protected:
  using Answer = std::expected<JsonObject, AgentError>;

  Talk(Place place, MainQueue& main, BackgroundPool& pool)
      : place_(std::move(place)), main_(main), queue_(pool, "com.local.vantrell.codex-discovery") {}

  // On the talk's queue.
  virtual void ask() = 0;
  virtual bool isAnswered() const = 0;
  // Once, on the main queue.
  virtual void complete() = 0;

  void request(std::string_view method, JsonObject params, std::function<void(Answer)> completion) {
    const std::int64_t id = pending_.add(std::move(completion));
    process_->send(jsonrpc::request(id, method, std::move(params)));
  }

 private:
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
    handlers.onEnd = [self](const JsonLineProcess::End&) { self->finish(); };
    auto process = JsonLineProcess::start(std::move(options), queue_,
                                          std::make_shared<Mailbox>(main_), std::move(handlers));
    if (!process) return finish();
    process_ = std::move(*process);
    request("initialize", codex::initializeParams("discovery"), [this](const Answer&) {
      process_->send(jsonrpc::notification("initialized"));
      ask();
    });
  }

  void handle(const JsonObject& message) {
    const auto id = json::integer(message, "id");
    if (!id || message.find("method") || isFinished_) return;
    const auto completion = pending_.take(*id);
    if (!completion) return;
    const JsonObject* result = json::object(message, "result");
    if (const JsonObject* error = json::object(message, "error")) {
      (*completion)(std::unexpected(codex::runtimeError(*error, "Codex refused the request.")));
    } else {
      (*completion)(result ? *result : JsonObject{});
    }
    if (isAnswered()) finish();
  }

  void finish() {
    if (std::exchange(isFinished_, true)) return;
    if (process_) {
      process_->stop(JsonLineProcess::Ending::prompt);
      // This may be a call from within the process.
      queue_.post([process = std::move(process_)] {});
    }
    main_.post([self = shared_from_this()] {
      self->timer_.cancel();
      self->complete();
    });
  }

  const Place place_;
  MainQueue& main_;
  const SerialQueue queue_;
  Timer timer_;  // the main queue's

  // The talk's queue's.
  std::unique_ptr<JsonLineProcess> process_;
  PendingRequests<Answer> pending_;
  bool isFinished_ = false;
};

class Discovery final : public Talk {
 public:
  using Completion = std::function<void(CodexDiscoveryResult)>;

  Discovery(Place place, MainQueue& main, BackgroundPool& pool, Completion completion)
      : Talk(std::move(place), main, pool), completion_(std::move(completion)) {}

 private:
  void ask() override {
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
  bool isAnswered() const override { return receivedModels_ && receivedUsage_; }
  void complete() override { std::exchange(completion_, nullptr)(std::move(result_)); }

  Completion completion_;
  CodexDiscoveryResult result_{codex::unknownModels(), std::nullopt};
  bool receivedModels_ = false;
  bool receivedUsage_ = false;
};

class Reset final : public Talk {
 public:
  using Outcome = std::expected<std::string, AgentError>;
  using Completion = std::function<void(Outcome)>;

  Reset(Place place, MainQueue& main, BackgroundPool& pool, Completion completion)
      : Talk(std::move(place), main, pool), completion_(std::move(completion)) {}

 private:
  void ask() override {
    isAsked_ = true;
    request("account/rateLimitResetCredit/consume", codex::consumeResetCreditParams(),
            [this](const Answer& answer) {
              outcome_ =
                  answer ? Outcome(codex::resetOutcome(*answer)) : std::unexpected(answer.error());
            });
  }
  bool isAnswered() const override { return outcome_.has_value(); }
  void complete() override {
    // Who asked and was not answered cannot know whether a credit is gone.
    if (!outcome_) {
      outcome_ = std::unexpected(
          AgentError(isAsked_ ? "Codex did not say what came of it." : "Codex did not answer."));
    }
    std::exchange(completion_, nullptr)(*std::move(outcome_));
  }

  Completion completion_;
  std::optional<Outcome> outcome_;
  bool isAsked_ = false;
};

}  // namespace

void run(Place place, MainQueue& main, BackgroundPool& pool,
         std::function<void(CodexDiscoveryResult)> completion) {
  std::make_shared<Discovery>(std::move(place), main, pool, std::move(completion))
      ->start(timeLimit);
}

void consumeUsageReset(Place place, MainQueue& main, BackgroundPool& pool,
                       std::function<void(std::expected<std::string, AgentError>)> completion) {
  std::make_shared<Reset>(std::move(place), main, pool, std::move(completion))->start(resetLimit);
}

}  // namespace vantrell::CodexDiscovery
