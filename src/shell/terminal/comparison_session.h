// Two conversations from their common prompt to the end of both: answers the questions of either,
// one after the other, hears Ctrl-C for both, and knows when they are over. Main queue; everything
// given must outlive it.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/app_model.h"
#include "platform/queues/run_loop.h"
#include "shell/terminal/answer_source.h"
#include "shell/terminal/change_feed.h"
#include "shell/terminal/permission_answers.h"

namespace vantrell::shell {

class ComparisonSession {
 public:
  struct Side {
    ThreadExecutionKey key;
    std::string name;
    RunObserver& observer;
  };
  struct Parts {
    RunLoop& loop;
    AppModel& model;
    AnswerSource& answers;
    /// Says something on standard error.
    std::function<void(std::string_view)> complain;
    /// Answers every question with the option of this kind, when given.
    std::optional<std::string> answerKind;
    /// Where one works is known now.
    std::function<void(const Side&)> introduce;
  };
  ComparisonSession(Parts parts, const std::vector<Side>& sides);

  /// Runs the loop until both have ended. Answers the exit status.
  int run();
  /// Stops both: once and they end with their runtimes, twice and they end at once.
  void stop();
  /// The user would not wait.
  bool wasAbandoned() const { return abandoned_; }

 private:
  struct Running {
    Running(ComparisonSession& session, const Side& side);
    const Side side;
    ChangeFeed feed;
    PermissionAnswers questions;
    std::shared_ptr<const PermissionRequest> question;
    bool isIntroduced = false;
    bool isSettled = false;  // nothing but hooks is waited for
    bool hasEnded = false;
  };

  void changed(const Change& change);
  void lookSoon();
  void look();
  void settle(Running& running);
  void ended(Running& running);
  void askNext();
  void select(const ThreadExecutionKey& key);
  void handleSignal(int signal);
  void end();
  const RunRecord* runOf(const Running& running) const;
  int statusOfEnd() const;

  Parts parts_;
  Changes::Observation observation_;  // before the feeds: an introduction comes first
  std::deque<Running> sides_;
  std::size_t asking_ = 0;  // whose question is, or was last, shown
  std::shared_ptr<const PermissionRequest> shown_;
  std::shared_ptr<RunLoop::SignalWatch> signals_;
  Timer farewell_;
  bool willLook_ = false;
  bool stopped_ = false;
  bool ended_ = false;
  bool abandoned_ = false;
  bool saveFailed_ = false;
  int signal_ = 0;  // the one, other than Ctrl-C, that ended it
};

}  // namespace vantrell::shell
