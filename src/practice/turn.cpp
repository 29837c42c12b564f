#include "practice/turn.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fmt/format.h>
#include <optional>
#include <sys/resource.h>
#include <unistd.h>
#include <utility>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "platform/text/utf8.h"

namespace vantrell::practice {
namespace {

using Kind = Directive::Kind;

/// Between two pieces: short enough for tests, long enough to be seen.
constexpr std::chrono::milliseconds pauseBetweenPieces{15};
/// A text is sent in about so many pieces.
constexpr std::size_t piecesOfText = 8;
constexpr std::size_t smallestPiece = 4;  // bytes
constexpr std::int64_t mostTicks = 60;
constexpr double longestTick = 3600;  // seconds
/// More would only fill a disk or a memory.
constexpr std::int64_t largestFlood = 1LL << 30;  // bytes
constexpr std::string_view floodPiece =
    "A flood is made of many small pieces of text, this one is such.\n";
constexpr int piecesOfBatch = 256;

/// What a prompt without directives gets.
constexpr std::string_view honestAnswer =
    "I am the practice agent that comes with Vantrell. There is no model behind me: nothing has "
    "read your request, and I will not do what it says. What I can do is follow directives, each "
    "at the start of a line. Two examples:\n\n"
    "SAY:Hello\n"
    "RUN:ls -l\n\n"
    "Send \"help\" to see all of them.";

std::string helpAnswer() {
  return "Each of these stands at the start of a line, and a prompt may hold several:\n\n```\n" +
         directiveHelp() + "```\n";
}

/// "\n" stands for a line feed, since a directive is one line.
std::string unescaped(std::string_view text) {
  std::string out(text);
  for (auto at = out.find("\\n"); at != std::string::npos; at = out.find("\\n", at + 1)) {
    out.replace(at, 2, "\n");
  }
  return out;
}

template <typename Number>
std::optional<Number> numberFrom(std::string_view text, Number least, Number most) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number >= least && number <= most ? std::optional(number) : std::nullopt;
}

/// Where the piece that begins at `start` ends: after a space where one is near, and never inside a
/// character.
std::size_t endOfPiece(std::string_view text, std::size_t start, std::size_t size) {
  const auto hardEnd = start + 3 * size;
  for (auto end = start + size; end < text.size(); ++end) {
    if (text[end - 1] == ' ' || text[end - 1] == '\n') return end;
    if (end >= hardEnd && !utf8::isContinuation(text[end])) return end;
  }
  return text.size();
}

[[noreturn]] void endProcess(int signal) {
  if (signal != 0) {
    rlimit noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    std::signal(signal, SIG_DFL);
    ::kill(::getpid(), signal);
  }
  std::_Exit(EXIT_FAILURE);
}

}  // namespace

Turn::Turn(TurnContext context, Finish finish)
    : context_(std::move(context)), finish_(std::move(finish)) {}

// ---- sequence -----------------------------------------------------------------------------------

void Turn::start(std::string_view prompt) {
  directives_ = readDirectives(prompt);
  context_.queue.post(whileCurrent([this, isHelp = asksForHelp(prompt)] {
    if (!directives_.empty()) return beginNext();
    speak(answerChunk, isHelp ? helpAnswer() : std::string(honestAnswer));
  }));
}

void Turn::cancel() {
  if (tool_) tool_->abandon();
  finish("cancelled");
}

void Turn::beginNext() {
  tool_.reset();
  timer_.cancel();
  messageId_ = Uuid::random().text();
  if (next_ == directives_.size()) {
    if (std::exchange(planEntry_, plan_.size()) < plan_.size()) showPlan();
    return finish("end_turn");
  }
  const Directive& directive = directives_[next_++];
  if (directive.kind != Kind::plan) advancePlan();
  carryOut(directive);
}

void Turn::goOn() {
  context_.queue.post(whileCurrent([this] { beginNext(); }));
}

void Turn::finish(std::expected<std::string, RpcError> result) {
  tool_.reset();
  timer_.cancel();
  if (auto finish = std::exchange(finish_, {})) finish(std::move(result));
}

void Turn::carryOut(const Directive& directive) {
  const std::string& argument = directive.argument;
  switch (directive.kind) {
    case Kind::say: return speak(answerChunk, unescaped(argument));
    case Kind::think: return speak(thoughtChunk, unescaped(argument));
    case Kind::stream: return stream(argument);
    case Kind::plan: return makePlan(argument);
    case Kind::ask:
    case Kind::read:
    case Kind::write:
    case Kind::run: return useTool(directive);
    case Kind::slow: return tick(argument);
    case Kind::fail:
      return finish(std::unexpected(RpcError{RpcError::internalError, unescaped(argument)}));
    case Kind::refuse: return speak(answerChunk, unescaped(argument), "refusal");
    case Kind::hang: return;
    case Kind::die: return die(argument);
    case Kind::flood: return flood(argument);
    case Kind::garbage: return sendGarbage(argument);
    case Kind::close: return closeInput(argument);
  }
}

void Turn::complain(std::string_view why) {
  speak(answerChunk, fmt::format("{} {}. \"help\" lists the directives.",
                                 wordOf(directives_[next_ - 1].kind), why));
}

// ---- the plan -----------------------------------------------------------------------------------

void Turn::makePlan(std::string_view entries) {
  std::vector<std::string> plan;
  for (auto item : text::split(entries, ';')) {
    if (auto entry = text::trimmed(item); !entry.empty()) plan.emplace_back(entry);
  }
  if (plan.empty()) return complain("needs entries, as in PLAN:look;change;test");
  plan_ = std::move(plan);
  planEntry_ = 0;
  isPlanBegun_ = false;
  showPlan();
  goOn();
}

/// Each directive after the plan is one of its entries; the last entry stands for all that follow.
void Turn::advancePlan() {
  if (plan_.empty()) return;
  if (isPlanBegun_ && planEntry_ + 1 == plan_.size()) return;
  if (std::exchange(isPlanBegun_, true)) ++planEntry_;
  showPlan();
}

void Turn::showPlan() {
  Json::Array list;
  for (std::size_t i = 0; i < plan_.size(); ++i) {
    const char* status = i < planEntry_                    ? "completed"
                         : i == planEntry_ && isPlanBegun_ ? "in_progress"
                                                           : "pending";
    list.emplace_back(
        JsonObject{{"content", plan_[i]}, {"priority", "medium"}, {"status", status}});
  }
  context_.transcript.showPlan(std::move(list));
}

// ---- speech -------------------------------------------------------------------------------------

void Turn::speak(std::string_view kind, std::string text, std::string_view stopReason) {
  messageKind_ = kind;
  stopReason_ = stopReason;
  text_ = std::move(text);
  pieceSize_ = std::max(smallestPiece, text_.size() / piecesOfText);
  sent_ = 0;
  sendPiece();
}

void Turn::sendPiece() {
  const auto end = endOfPiece(text_, sent_, pieceSize_);
  context_.transcript.speak(messageKind_, messageId_,
                            std::string_view(text_).substr(sent_, end - sent_));
  sent_ = end;
  if (sent_ == text_.size()) {
    return stopReason_.empty() ? goOn() : finish(std::string(stopReason_));
  }
  auto next = whileCurrent([this] { sendPiece(); });
  if (context_.transcript.session().model == "practice-instant") {
    context_.queue.post(std::move(next));
  } else {
    timer_ = context_.queue.after(pauseBetweenPieces, std::move(next));
  }
}

/// The agent reads the file itself: the host sees nothing but the text, piece by piece as models
/// send it.
void Turn::stream(const std::string& path) {
  const auto name = text::trimmed(path);
  if (name.empty()) return complain("needs a path");
  const auto text = files::read(files::standardized(name, context_.transcript.session().folder));
  if (!text) return speak(answerChunk, fmt::format("STREAM: {}.", text.error().description));
  messageKind_ = answerChunk;
  stopReason_ = {};
  text_ = text::repaired(*text);
  pieceSize_ = smallestPiece;
  sent_ = 0;
  sendPiece();
}

void Turn::tick(std::string_view given) {
  // The least period that the queue's timers know is far below.
  const auto seconds = numberFrom<double>(text::trimmed(given), 1e-6, longestTick);
  if (!seconds) return complain("needs a number of seconds, as in SLOW:0.5");
  left_ = mostTicks;
  timer_ = context_.queue.every(
      std::chrono::duration_cast<Duration>(Seconds(*seconds)), whileCurrent([this] {
        context_.transcript.speak(answerChunk, messageId_,
                                  fmt::format("tick {}\n", mostTicks - --left_));
        if (left_ > 0) return;
        timer_.cancel();
        goOn();
      }));
}

// ---- tools --------------------------------------------------------------------------------------

void Turn::useTool(const Directive& directive) {
  const std::string_view argument = directive.argument;
  const auto equals = directive.kind == Kind::write ? argument.find('=') : argument.size();
  const std::string subject(text::trimmed(argument.substr(0, equals)));
  if (directive.kind == Kind::write && (equals == std::string_view::npos || subject.empty())) {
    return complain("needs a path and a content, as in WRITE:notes.txt=hello");
  }
  if (subject.empty()) return complain("needs something after the colon");
  tool_ = std::make_shared<ToolStep>(context_, whileCurrent([this](bool isCancelled) {
                                       if (isCancelled) return finish("cancelled");
                                       goOn();
                                     }));
  switch (directive.kind) {
    case Kind::ask: return tool_->ask(subject);
    case Kind::read: return tool_->read(subject);
    case Kind::write: return tool_->write(subject, unescaped(argument.substr(equals + 1)));
    default: return tool_->run(subject);
  }
}

// ---- faults: so that a host can be shown to bear them -------------------------------------------

void Turn::die(std::string_view given) {
  const auto number = given.empty() ? 0 : numberFrom<int>(text::trimmed(given), 1, 64);
  if (!number) return complain("takes the number of a signal, as in DIE:9");
  context_.transcript.say("Ending in the middle of the turn, as asked.");
  context_.output.write(STDOUT_FILENO, "", [signal = *number] { endProcess(signal); });
}

void Turn::flood(std::string_view target) {
  target = text::trimmed(target);
  const bool isError = target.starts_with("stderr=");
  const auto bytes =
      isError || target.starts_with("stdout=")
          ? numberFrom<std::int64_t>(target.substr(target.find('=') + 1), 1, largestFlood)
          : std::nullopt;
  if (!bytes) return complain("takes stdout=bytes or stderr=bytes, of 1 to 1073741824");
  left_ = *bytes;
  sendFlood(isError);
}

/// A batch at a time: the next one when the system has taken the last.
void Turn::sendFlood(bool isError) {
  Work next = whileCurrent([this, isError] { left_ > 0 ? sendFlood(isError) : beginNext(); });
  std::string batch;
  for (int i = 1; i <= piecesOfBatch && left_ > 0; ++i) {
    const auto piece = floodPiece.substr(0, static_cast<std::size_t>(left_));
    left_ -= static_cast<std::int64_t>(piece.size());
    if (isError) {
      batch += piece;
    } else {
      const bool isLast = i == piecesOfBatch || left_ == 0;
      context_.transcript.sayUnrecorded(messageId_, piece, isLast ? std::move(next) : Work());
    }
  }
  if (isError) context_.output.write(STDERR_FILENO, std::move(batch), std::move(next));
}

void Turn::sendGarbage(std::string_view kind) {
  kind = text::trimmed(kind);
  std::string bytes;
  if (kind == "half") {
    return context_.output.write(STDOUT_FILENO, R"({"jsonrpc":"2.0","method":"session/upd)",
                                 [] { endProcess(0); });
  }
  if (kind == "utf8") {
    bytes = "{\"jsonrpc\":\"2.0\",\"method\":\"practice/\xC3\x28\xFF\"}";
  } else if (kind == "text") {
    bytes = "This line is not JSON.";
  } else if (kind.starts_with("long=")) {
    const auto length = numberFrom<std::int64_t>(kind.substr(5), 1, largestFlood);
    if (length) bytes.assign(static_cast<std::size_t>(*length), 'x');
  }
  if (bytes.empty()) return complain("takes half, utf8, text or long=bytes");
  context_.output.write(STDOUT_FILENO, bytes + '\n', whileCurrent([this] { beginNext(); }));
}

void Turn::closeInput(std::string_view name) {
  if (text::trimmed(name) != "stdin") return complain("takes stdin");
  context_.closeInput();
  goOn();
}

}  // namespace vantrell::practice
