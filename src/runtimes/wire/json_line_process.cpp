#include "runtimes/wire/json_line_process.h"

#include "platform/text/tail_buffer.h"
#include "platform/text/text.h"
#include "platform/text/utf8.h"

namespace vantrell {

namespace {

/// Bytes at the end that begin a character which the read cut in two; 0 to 3.
std::size_t unfinishedTail(std::string_view bytes) {
  for (std::size_t back = 1; back <= std::min<std::size_t>(3, bytes.size()); ++back) {
    const char* const lead = bytes.data() + bytes.size() - back;
    if (utf8::isContinuation(*lead)) continue;
    const auto character = utf8::sequenceAt(lead, lead + back);
    return !character.valid && character.length == back ? back : 0;
  }
  return 0;
}

}  // namespace

struct JsonLineProcess::State {
  Handlers handlers;
  std::shared_ptr<Mailbox> mailbox;
  LineBuffer lines;
  TailBuffer errorText{keptErrorText};
  std::string errorTail;  // of a character cut in two
  std::weak_ptr<Process> process;
  std::string cause;  // of its end, as far as it lies here
  bool hasWriteFailed = false;
  bool isStopped = false;

  /// The words of a runtime that is dying already are still read.
  void giveUp(std::string why) {
    if (!cause.empty()) return;
    cause = std::move(why);
    if (const auto child = process.lock()) child->terminate();
  }

  void consume(std::string_view bytes) {
    const Mailbox::Hold together(*mailbox);
    lines.consume(bytes, [this](std::string_view line) {
      if (isStopped) return;
      if (auto message = json::parseObject(line)) {
        if (handlers.onMessage) handlers.onMessage(std::move(*message), line.size());
      } else if (handlers.onOtherLine) {
        handlers.onOtherLine(line);
      }
    });
    if (lines.pendingBytes() > LineBuffer::longestLine) {
      giveUp("The runtime sent a line of more than 256 MB, and was ended.");
      lines = {};
    }
    if (!isStopped && handlers.onReadHandled) handlers.onReadHandled();
  }

  void consumeError(std::string_view bytes) {
    std::string chunk = std::exchange(errorTail, {});
    chunk.append(bytes);
    const std::size_t cut = unfinishedTail(chunk);
    errorTail = chunk.substr(chunk.size() - cut);
    chunk.erase(chunk.size() - cut);
    if (chunk.empty() || !text::isValidUtf8(chunk)) return;
    errorText.append(chunk);
    if (handlers.onErrorText) handlers.onErrorText(std::move(chunk));
  }
};

std::expected<std::unique_ptr<JsonLineProcess>, ProcessError> JsonLineProcess::start(
    ProcessOptions options, SerialQueue queue, std::shared_ptr<Mailbox> mailbox,
    Handlers handlers) {
  auto state = std::make_shared<State>();
  state->handlers = std::move(handlers);
  state->mailbox = mailbox;

  Process::Handlers events;
  events.onOutput = [state](std::string_view bytes) { state->consume(bytes); };
  events.onError = [state](std::string_view bytes) { state->consumeError(bytes); };
  events.onWriteError = [state](ProcessError error) {
    state->hasWriteFailed = state->cause.empty();
    state->giveUp(std::move(error.description));
  };
  events.onExit = [state](ExitStatus status) {
    const Mailbox::Hold together(*state->mailbox);
    const std::string words = state->errorText.contents();
    // One that had ended by itself could not be written to either: its own status says more.
    if (state->hasWriteFailed && status.signal == 0) state->cause.clear();
    if (state->handlers.onEnd) {
      state->handlers.onEnd({status, std::string(text::trimmed(words)), state->cause});
    }
  };

  auto process = Process::start(std::move(options), std::move(queue), std::move(events));
  if (!process) return std::unexpected(std::move(process.error()));
  state->process = *process;
  mailbox->whenFullChanges([weak = std::weak_ptr(*process)](bool isFull) {
    const auto child = weak.lock();
    if (!child) return;
    if (isFull) {
      child->pauseReading();
    } else {
      child->resumeReading();
    }
  });
  std::unique_ptr<JsonLineProcess> made(new JsonLineProcess);
  made->state_ = std::move(state);
  made->process_ = std::move(*process);
  return made;
}

JsonLineProcess::~JsonLineProcess() {
  stop(Ending::prompt);
}

void JsonLineProcess::send(const JsonObject& message) {
  if (!state_->cause.empty()) return;  // its end is on the way
  if (process_->unsentBytes() > unreadLimit) {
    return state_->giveUp("The runtime no longer reads what it is sent, and was ended.");
  }
  std::string line;
  json::appendTo(line, message);
  line.push_back('\n');
  process_->write(std::move(line));
}

void JsonLineProcess::stop(Ending ending) {
  state_->isStopped = true;
  process_->stop(Process::defaultGrace,
                 ending == Ending::gentle ? patience : std::chrono::milliseconds::zero());
}

}  // namespace vantrell
