// A runtime that speaks one JSON object a line on its standard input and output: the framing, the
// error text, the write errors and the end of the process, which every dialect over a pipe shares.
// Used on one protocol queue; all handlers arrive there.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/process/process.h"
#include "platform/queues/mailbox.h"
#include "platform/values/json.h"
#include "runtimes/wire/line_buffer.h"

namespace vantrell {

class JsonLineProcess {
 public:
  struct End {
    ExitStatus status;
    std::string errorText;  // its standard error, trimmed (the last part, when it wrote very much)
    /// Why this program ended it, or what the system said when it no longer took input; else empty.
    std::string cause;
  };
  struct Handlers {
    /// A line that is a JSON object; `bytes` is the line's length.
    std::function<void(JsonObject message, std::size_t bytes)> onMessage;
    /// What came in one read has been handled: the moment to hand over what was gathered.
    std::function<void()> onReadHandled;
    /// A line that is not, without its line feed. Unset: such lines are dropped.
    std::function<void(std::string_view line)> onOtherLine;
    /// Standard error, as it comes; text that is not UTF-8 is dropped.
    std::function<void(std::string text)> onErrorText;
    /// The process has ended without stop().
    std::function<void(End)> onEnd;
  };

  /// What the handlers deliver to the mailbox during one chunk of output, or at the end of the
  /// process, arrives on the main queue together; while the mailbox is full the runtime is held
  /// back.
  static std::expected<std::unique_ptr<JsonLineProcess>, ProcessError> start(
      ProcessOptions options, SerialQueue queue, std::shared_ptr<Mailbox> mailbox,
      Handlers handlers);
  ~JsonLineProcess();

  /// Writes the object and a line feed. A runtime that does not take its input, by an error or by
  /// letting more than `unreadLimit` wait, is ended, and so is one that sends an endless line.
  void send(const JsonObject& message);
  enum class Ending {
    prompt,  // at once: it has work in hand that must not go on
    gentle,  // by the end of its input first: runtimes write their sessions down when they see it
  };
  /// Closes the pipes and ends the process and its group. No handler is called from now on.
  void stop(Ending ending);

  /// How long a gentle end waits before it becomes a prompt one. Kimi Code takes a quarter of a
  /// second to store the last answer of a turn; terminated before, it has lost it.
  static constexpr std::chrono::milliseconds patience{2000};

  /// A prompt with its attachments, or the files that a runtime asks for at once, stay far below.
  /// One message may be larger: what counts is what waits in front of it.
  static constexpr std::size_t unreadLimit = 64 << 20;

  /// How much standard error is kept for the message of an unexpected end.
  static constexpr std::size_t keptErrorText = 1 << 20;

 private:
  JsonLineProcess() = default;
  struct State;
  std::shared_ptr<State> state_;
  std::shared_ptr<Process> process_;
};

}  // namespace vantrell
