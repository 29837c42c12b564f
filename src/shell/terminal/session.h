// What is at work until it rests: one conversation, the two of a comparison, or the media
// generator. A session begins it, asks the agents' questions one at a time,
// hears Ctrl-C, and knows when it is over. Main queue; the context must outlive it.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/core/changes.h"
#include "engine/turns/approvals.h"
#include "shell/terminal/command_context.h"

namespace vantrell::shell {

/// One thing that a session follows.
class Job {
 public:
  using Question = std::shared_ptr<const PermissionRequest>;

  virtual ~Job() = default;

  virtual void begin() = 0;
  /// Shows what has changed.
  virtual void changed(const ChangeBatch& batch) = 0;
  virtual bool isAtRest() const = 0;
  /// It was stopped, and its agent may still tell how its tools ended.
  virtual bool isStopping() const = 0;
  virtual void stop() = 0;
  /// Hooks that follow it would end with this program.
  virtual void whenHooksAreDone(std::function<void()> done) { done(); }
  virtual Question question() const = 0;
  /// Without an option the question is refused.
  virtual Result<> answer(const PermissionRequest& request, const PermissionOption* option,
                          Approvals::Answerer answerer) = 0;
  /// The user typed a line that answers nothing.
  virtual void typed(const std::string&) {}
  /// The session is about to write.
  virtual void makeRoom() {}
  /// Holds back what its agent says, or lets it flow again.
  virtual void setReceiving(bool) {}
  /// Ends its agent where that is still at work.
  virtual void endWork() = 0;
  /// It is over: before the clients end, and after that, when it says how it ended.
  virtual void conclude() {}
  virtual void tellEnd() = 0;
  virtual int status() const = 0;

  // Where there are several:
  std::string name;      // before what is said about it
  std::string threadID;  // in its lines of JSON
};

class Session : public std::enable_shared_from_this<Session> {
 public:
  struct Options {
    /// Answers every question with the option of this kind.
    std::optional<std::string> answerKind;
    /// The user may type further prompts. Not where a pager reads the same keyboard.
    bool hearsPrompts = false;
    /// The jobs are done on another computer: no state of this one is opened.
    bool isElsewhere = false;
  };
  /// Runs until everything rests, then calls back with the exit status. Kept by the context; what
  /// is returned is for those who report changes of jobs elsewhere.
  static std::weak_ptr<Session> begin(CommandContext& context,
                                      std::vector<std::unique_ptr<Job>> jobs, Options options,
                                      std::function<void(int status)> ended);
  /// Something about the jobs has changed. Called by the session itself for jobs of this computer.
  void changed(const ChangeBatch& batch);

  /// How long a stopped agent may take to end its turn.
  static constexpr std::chrono::milliseconds stopTimeout{2000};

 private:
  struct Followed {
    std::unique_ptr<Job> job;
    Job::Question question;
    bool isSettling = false;
    bool hasEnded = false;
  };

  Session(CommandContext& context, std::vector<std::unique_ptr<Job>> jobs, Options options,
          std::function<void(int)> ended);
  void begin();
  void lookSoon();
  void look();
  void settle(Followed& followed);
  void jobEnded(Followed& followed);

  void askNext();
  void showQuestion();
  void awaitLine();
  void readLine(const std::optional<std::string>& line);
  void withdraw();
  /// Null: refused.
  void answer(const PermissionOption* option);
  void refuse(std::string_view why);
  void complain(std::string_view text);
  std::optional<GrokPermissionMode> permissionMode() const;

  void handleSignal(int signal);
  /// Once and it ends with its agents, twice and it ends at once.
  void stop();
  void end();
  int statusOfEnd() const;

  CommandContext& context_;
  const Options options_;
  const bool isTyped_;  // a person answers at the terminal
  std::vector<Followed> jobs_;
  Changes::Observation observation_;
  std::shared_ptr<void> signals_;
  const std::function<void(int)> whenEnded_;
  Followed* asking_ = nullptr;  // whose question is open for an answer
  Job::Question asked_;
  std::size_t turn_ = 0;  // whose question is looked at first
  Timer stopTimer_;
  bool willLook_ = false;
  bool hasBegun_ = false;
  bool isStopped_ = false;
  bool hasEnded_ = false;
  int signal_ = 0;  // the one, other than Ctrl-C, that ended it
};

}  // namespace vantrell::shell
