#include "practice/fault_steps.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <string_view>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>

#include "platform/queues/weakly.h"
#include "platform/values/uuid.h"

namespace vantrell::practice {
namespace {

using Kind = Directive::Kind;

/// One small piece of a flood; 64 bytes.
constexpr std::string_view floodPiece =
    "A flood is made of many small pieces of text, this one is such.\n";
static_assert(floodPiece.size() == 64);
constexpr int piecesOfBatch = 256;

[[noreturn]] void die(int signal) {
  if (signal != 0) {
    rlimit noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    std::signal(signal, SIG_DFL);
    ::kill(::getpid(), signal);
  }
  std::_Exit(EXIT_FAILURE);
}

}  // namespace

FloodStep::FloodStep(StepContext context, Finish finish, Directive::Kind kind, std::int64_t bytes)
    : Step(std::move(context), std::move(finish)),
      kind_(kind),
      left_(bytes),
      messageId_(Uuid::random().text()) {}

void FloodStep::start() {
  sendBatch();
}

void FloodStep::sendBatch() {
  if (left_ == 0) return finish();
  auto next = weakly(this, [](FloodStep& step) { step.sendBatch(); });
  if (kind_ == Kind::floodOutput) return sendMessages(std::move(next));
  std::string batch;
  for (int i = 0; i < piecesOfBatch; ++i) batch += floodPiece;
  batch.resize(std::min(batch.size(), static_cast<std::size_t>(left_)));
  left_ -= static_cast<std::int64_t>(batch.size());
  context().output.write(STDERR_FILENO, std::move(batch), std::move(next));
}

void FloodStep::sendMessages(Work whenWritten) {
  auto takePiece = [this] {
    auto piece = floodPiece.substr(0, static_cast<std::size_t>(left_));
    left_ -= static_cast<std::int64_t>(piece.size());
    return piece;
  };
  auto size = static_cast<std::int64_t>(floodPiece.size());
  for (int i = 1; i < piecesOfBatch && left_ > size; ++i) {
    transcript().sayUnrecorded(messageId_, takePiece());
  }
  transcript().sayUnrecorded(messageId_, takePiece(), std::move(whenWritten));
}

FaultStep::FaultStep(StepContext context, Finish finish, const Directive& directive)
    : Step(std::move(context), std::move(finish)), directive_(directive) {}

void FaultStep::start() {
  switch (directive_.kind) {
    case Kind::die:
      transcript().say("Ending in the middle of the turn, as asked.");
      return writeAndDie("", static_cast<int>(directive_.amount));
    case Kind::halfLine: return writeAndDie(R"({"jsonrpc":"2.0","method":"session/upd)", 0);
    case Kind::invalidUtf8:
      return writeAndGoOn("{\"jsonrpc\":\"2.0\",\"method\":\"practice/\xC3\x28\xFF\"}\n");
    case Kind::noJson: return writeAndGoOn("This line is not JSON.\n");
    case Kind::longLine:
      return writeAndGoOn(std::string(static_cast<std::size_t>(directive_.amount), 'x') + '\n');
    case Kind::closeInput: context().closeInput(); return finish();
    default: return finish();
  }
}

void FaultStep::writeAndGoOn(std::string bytes) {
  context().output.write(STDOUT_FILENO, std::move(bytes),
                         weakly(this, [](FaultStep& step) { step.finish(); }));
}

void FaultStep::writeAndDie(std::string bytes, int signal) {
  context().output.write(STDOUT_FILENO, std::move(bytes), [signal] { die(signal); });
}

}  // namespace vantrell::practice
