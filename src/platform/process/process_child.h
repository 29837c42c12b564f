// One child from its start to its last breath. Part of Process, on the reactor's thread; held by
// the supervisor until the child is reaped, however long its owner lives.
#pragma once

#include <deque>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <sys/types.h>

#include "platform/process/process_channel.h"
#include "platform/process/process_reactor.h"

namespace vantrell {

class ProcessSupervisor;

class ProcessChild : public std::enable_shared_from_this<ProcessChild> {
 public:
  ProcessChild(ProcessSupervisor& supervisor, std::shared_ptr<ProcessChannel> channel);

  std::expected<void, ProcessError> launch(const ProcessOptions& options);
  pid_t id() const { return id_; }

  /// Sends what the channel holds.
  void takeInput();
  void setPaused(bool paused);
  void readAgain(ProcessChannel::Stream stream);
  void terminate(Duration grace);
  void stop(Duration grace, Duration patience);

 private:
  struct Source {
    Descriptor pipe;
    ProcessReactor::Watch watch;

    /// The watch goes first: the number of a closed pipe may be another thread's file already.
    void close() {
      watch.reset();
      pipe.reset();
    }
  };

  Source& source(ProcessChannel::Stream stream);
  void updateReading(ProcessChannel::Stream stream);
  void readChunk(ProcessChannel::Stream stream);
  void readWhatIsThere(ProcessChannel::Stream stream);
  void sendPieces();
  void closeInput();
  bool outputEnded() const { return !output_.pipe && !error_.pipe; }
  void onLeaderExit();
  void killBy(Duration instant);
  void killGroup();
  void awaitGroup();
  void bury();
  void retire();

  ProcessSupervisor& supervisor_;
  std::shared_ptr<ProcessChannel> channel_;
  pid_t id_ = 0;
  Descriptor handle_;  // a pidfd
  ProcessReactor::Watch exitWatch_;
  Source output_;
  Source error_;
  bool paused_ = false;
  Descriptor input_;
  ProcessReactor::Watch inputWatch_;
  std::deque<std::string> pieces_;
  std::size_t sentOfFirst_ = 0;
  bool closesInput_ = false;
  bool endsGroupWithLeader_ = true;
  bool leaderExited_ = false;  // and still unreaped: its id, and so the group's, stays taken
  bool stopped_ = false;
  bool buried_ = false;
  std::optional<Duration> killInstant_;
  Timer patienceTimer_;
  Timer killTimer_;
  Timer groupTimer_;
  Duration groupCheck_;  // until the next look at the group
};

}  // namespace vantrell
