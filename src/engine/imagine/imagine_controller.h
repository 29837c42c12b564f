// Makes pictures and films through Grok Build, apart from any project and conversation: it has a
// client of its own, which works in the folder of the media library and stays for the next prompt.
// The agent tells of its results only as paths somewhere in its updates; each new file is copied
// into the library. Main queue; files are copied in the background.
#pragma once

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "engine/core/agent_session.h"
#include "engine/core/connection_state.h"
#include "engine/core/engine_events.h"
#include "engine/core/execution_table.h"
#include "engine/core/log_text.h"
#include "engine/core/refusal.h"
#include "engine/core/settings.h"
#include "engine/providers/installed_runtimes.h"
#include "engine/providers/provider_services.h"
#include "records/stores/imagine_store.h"

namespace vantrell {

class ImagineController : public std::enable_shared_from_this<ImagineController>,
                          private AgentSession::Listener {
 public:
  struct Dependencies {
    MainQueue& main;
    const Settings& settings;
    ExecutionTable& executions;
    Changes& changes;
    EngineEvents& events;
    ProviderServices& services;
    InstalledRuntimes& runtimes;
    std::string supportFolder;  // the program's own data folder, which holds the library
    Executor& background;       // copies files
  };
  explicit ImagineController(Dependencies dependencies);
  ~ImagineController() override;

  /// Reads the library.
  void load();

  /// Newest first: in the order in which their copies were done.
  const std::vector<ImagineItem>& imagineItems() const { return items_; }
  const ConnectionState& imagineState() const { return state_; }
  /// One line for the user.
  const std::string& imagineProgress() const { return progress_; }
  /// What the agent has said about the prompt at hand: why there is no picture. Its beginning only.
  const std::string& imagineAnswer() const { return answer_; }
  /// Why a file that the agent named could not be copied into the library: the last such failure
  /// since the prompt at hand began. Empty when there was none.
  const std::string& imagineCopyError() const { return copyError_; }
  /// A prompt that the client has not answered (a cancelled one is, when the agent has ended it),
  /// or a copy under way.
  bool hasUnfinishedWork() const { return session_->hasUnansweredPrompt() || copiesUnderWay_ > 0; }
  /// What the agent has logged since it was started.
  std::string_view log() const { return log_.view(); }

  /// Makes what the prompt says. Where the client is at work or has failed, a new one takes its
  /// place.
  Result<> generateImagine(const std::string& prompt, ImagineKind kind);
  /// The program for what is made from now on, in place of the one that the user has set.
  void chooseExecutable(std::optional<std::string> path);
  /// Stops what is being made; what was copied stays.
  void cancelImagine();
  /// Moves the file to the Trash and forgets the item, which goes even where its file stays.
  void deleteImagineItem(const Uuid& id);
  /// False where that question is not open any more.
  bool respondToPermission(std::int64_t requestID, const std::string& optionID);
  /// Ends the client: the next one starts under the present settings.
  void reset();

  static constexpr std::size_t keptOfAnswer = 4096;  // bytes, about
  /// More would keep the background from what the agents of other tasks say.
  static constexpr int copiesAtOnce = 2;

 private:
  struct Request {
    std::string prompt;
    ImagineKind kind = ImagineKind::image;
  };
  struct Copy {
    std::string path;
    std::string prompt;
  };

  void agentUpdated(const JsonObject& update) override { handleImagine(update); }
  void agentAsked() override { announce(); }
  void agentQuestionWithdrawn() override { announce(); }
  void agentLogged(std::string_view text) override { log_.append(text); }
  void agentEnded(const std::string& text) override;

  void begin(Request request);
  void startClient();
  void startCompleted(const std::optional<AgentSession::StartResult>& result);
  void sendPrompt(Request request);
  void promptCompleted(const AgentSession::PromptResult& result);
  void handleImagine(const JsonObject& update);
  std::set<std::string> pathsIn(const JsonObject& update, const std::string* said);
  void startCopies();
  void imported(files::Result<std::optional<ImagineItem>> item);
  void fail(const std::string& description);
  void save();
  void announce();

  const Dependencies core_;
  const std::shared_ptr<AgentSession> session_;
  ImagineStore store_;

  std::vector<ImagineItem> items_;
  ConnectionState state_;
  std::optional<std::string> executable_;
  std::string progress_;
  std::string answer_;
  std::string copyError_;
  LogText log_;
  bool wasCancelled_ = false;  // the prompt at hand
  Timer startWait_;            // of a prompt, for a client that was cancelled while it was starting
  std::string currentImaginePrompt_;
  ImagineKind currentImagineKind_ = ImagineKind::image;
  std::set<std::string> seenImaginePaths_;  // handled for the prompt at hand
  std::string openLine_;                    // the end of what the agent says: a path may go on
  std::deque<Copy> copiesWaiting_;
  int copiesUnderWay_ = 0;
  std::stop_source stopCopies_;
};

}  // namespace vantrell
