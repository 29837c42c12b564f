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

#include "engine/core/connection_state.h"
#include "engine/core/engine_core.h"
#include "records/stores/imagine_store.h"

namespace vantrell {

class ImagineController : public std::enable_shared_from_this<ImagineController> {
 public:
  ImagineController(EngineCore& core, InstalledRuntimes& runtimes);
  ~ImagineController();

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
  bool hasUnfinishedWork() const { return isPromptOpen_ || copiesUnderWay_ > 0; }

  /// Makes what the prompt says. Where the client is at work or has failed, a new one takes its
  /// place. An empty prompt does nothing.
  void generateImagine(const std::string& prompt, ImagineKind kind);
  /// Stops what is being made; what was copied stays.
  void cancelImagine();
  /// Moves the file to the Trash and forgets the item, which goes even where its file stays.
  void deleteImagineItem(const Uuid& id);
  void respondToPermission(std::int64_t requestID, const std::string& optionID);
  /// Ends the client: the next one starts under the present settings.
  void reset();

  static constexpr std::size_t keptOfAnswer = 4096;  // bytes, about
  /// How long a prompt waits for an agent that was stopped; then another client takes it.
  static constexpr std::chrono::seconds stopPatience{10};
  /// More would keep the background from what the agents of other tasks say.
  static constexpr int copiesAtOnce = 2;

 private:
  struct Wish {
    std::string prompt;
    ImagineKind kind = ImagineKind::image;
  };
  struct Copy {
    std::string path;
    std::string prompt;
  };
  using StartResult = std::expected<AgentStartResult, AgentError>;
  using PromptResult = std::expected<JsonObject, AgentError>;

  /// For everything that a client calls: one that was replaced has nothing to say any more.
  template <typename Body>
  auto whileServing(Body body);
  void begin(Wish wish);
  void startClient();
  void waitForStoppedClient();
  void setCallbacks();
  void endClient();
  void startCompleted(const StartResult& result);
  void performImagineSend();
  void promptCompleted(const PromptResult& result);
  void handleImagine(const JsonObject& update);
  std::set<std::string> pathsIn(const JsonObject& update, const std::string* said);
  void startCopies();
  void imported(files::Result<std::optional<ImagineItem>> item);
  void fail(const std::string& description);
  void save();
  void announce();

  MainQueue& main_;
  Settings& settings_;
  ExecutionTable& executions_;
  InstalledRuntimes& runtimes_;
  Changes& changes_;
  const EnginePorts& ports_;
  ImagineStore store_;

  std::vector<ImagineItem> items_;
  ConnectionState state_;
  std::string progress_;
  std::string answer_;
  std::string copyError_;
  std::shared_ptr<AgentClient> client_;  // kept between prompts
  bool isStarting_ = false;              // its start has not completed
  bool isSessionOpen_ = false;           // its start has succeeded
  bool isPromptOpen_ = false;            // it has a prompt that it has not answered
  bool wasCancelled_ = false;            // the prompt at hand
  std::optional<Wish> due_;              // waits for the end of a cancelled one
  Timer patience_;                       // of one that waits
  std::string currentImaginePrompt_;
  ImagineKind currentImagineKind_ = ImagineKind::image;
  std::set<std::string> seenImaginePaths_;  // handled for the prompt at hand
  std::string openLine_;                    // the end of what the agent says: a path may go on
  std::deque<Copy> copiesWaiting_;
  int copiesUnderWay_ = 0;
  std::stop_source stopCopies_;
};

}  // namespace vantrell
