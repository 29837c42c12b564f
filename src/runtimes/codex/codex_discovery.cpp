#include "runtimes/codex/codex_discovery.h"

#include "runtimes/codex/codex_connection.h"
#include "runtimes/codex/codex_messages.h"
#include "runtimes/codex/codex_usage.h"

namespace vantrell::CodexDiscovery {

namespace {

using Answer = PendingRequests::Answer;

/// One process that is asked a few things and ended: with the last answer, with the time limit, or
/// when it ends by itself, which answers all that is open.
template <typename Result>
class Talk : public std::enable_shared_from_this<Talk<Result>> {
 public:
  struct Question {
    std::string_view method;
    JsonObject params;
    std::function<void(Result&, const Answer&)> read;
  };

  Talk(Place place, MainQueue& main, BackgroundPool& pool, Result unasked,
       std::function<void(Result)> completion)
      : main_(main),
        queue_(pool, "com.local.vantrell.codex-discovery"),
        codex_(std::make_shared<CodexConnection>(
            AgentConfiguration{.executable = std::move(place.executable),
                               .workspacePath = std::move(place.workspacePath),
                               .processEnvironment = std::move(place.environment)},
            AgentChannel{queue_, std::make_shared<Mailbox>(main),
                         [](const auto&, std::size_t) {}})),
        result_(std::move(unasked)),
        completion_(std::move(completion)) {}

  /// The result is `unanswered` from the moment of the questions on.
  void start(std::chrono::seconds limit, Result unanswered, std::vector<Question> questions) {
    const auto self = this->shared_from_this();
    timer_ = main_.after(limit, [self] { self->queue_.post([self] { self->finish(); }); });
    queue_.post([self, unanswered, questions] {
      self->codex_->open("discovery", [self, unanswered, questions](const Answer& answer) {
        if (!answer) return self->finish();
        self->result_ = unanswered;
        self->ask(questions);
      });
    });
  }

 private:
  void ask(const std::vector<Question>& questions) {
    open_ = questions.size();
    for (const Question& each : questions) {
      codex_->request(each.method, each.params,
                      [self = this->shared_from_this(), read = each.read](const Answer& answer) {
                        if (self->isFinished_) return;
                        read(self->result_, answer);
                        if (--self->open_ == 0) self->finish();
                      });
    }
  }

  void finish() {
    if (std::exchange(isFinished_, true)) return;
    // This may be a call from within the process.
    queue_.post([self = this->shared_from_this()] {
      self->codex_->stop();
      self->main_.post([self] {
        self->timer_.cancel();
        std::exchange(self->completion_, nullptr)(std::move(self->result_));
      });
    });
  }

  MainQueue& main_;
  const SerialQueue queue_;
  Timer timer_;  // the main queue's; what follows is the talk's queue's until it has finished
  const std::shared_ptr<CodexConnection> codex_;
  Result result_;
  std::function<void(Result)> completion_;
  std::size_t open_ = 0;  // questions without an answer
  bool isFinished_ = false;
};

}  // namespace

void run(Place place, MainQueue& main, BackgroundPool& pool,
         std::function<void(CodexDiscoveryResult)> completion) {
  using Result = CodexDiscoveryResult;
  const Result nothing{codex::unknownModels(), std::nullopt};
  std::make_shared<Talk<Result>>(std::move(place), main, pool, nothing, std::move(completion))
      ->start(timeLimit, nothing,
              {{"model/list",
                {{"includeHidden", false}},
                [](Result& result, const Answer& answer) {
                  auto models = codex::modelOptions(answer.value_or(JsonObject{}));
                  if (!models.empty()) result.models = std::move(models);
                }},
               {"account/rateLimits/read", {}, [](Result& result, const Answer& answer) {
                  if (answer) result.usage = codex::parseRateLimits(*answer);
                }}});
}

void consumeUsageReset(Place place, MainQueue& main, BackgroundPool& pool,
                       std::function<void(std::expected<std::string, AgentError>)> completion) {
  using Result = std::expected<std::string, AgentError>;
  const auto failed = [](const char* words) { return Result(std::unexpected(AgentError(words))); };
  std::make_shared<Talk<Result>>(std::move(place), main, pool, failed("Codex did not answer."),
                                 std::move(completion))
      // Once it has been asked nothing but its answer can tell whether a credit is gone.
      ->start(resetLimit, failed("Codex did not say what came of it."),
              {{"account/rateLimitResetCredit/consume", codex::consumeResetCreditParams(),
                [](Result& result, const Answer& answer) {
                  if (answer) {
                    result = codex::resetOutcome(*answer);
                  } else if (!answer.error().isDisconnection()) {
                    result = std::unexpected(answer.error());
                  }
                }}});
}

}  // namespace vantrell::CodexDiscovery
