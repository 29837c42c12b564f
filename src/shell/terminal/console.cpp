#include "shell/terminal/console.h"

#include <algorithm>
#include <cerrno>
#include <fmt/format.h>
#include <sys/stat.h>
#include <system_error>

#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

constexpr std::string_view clearLine = "\r\x1b[K";
constexpr std::size_t widestTable = 1000;  // longer lines are not for reading
constexpr int narrowestTable = 20;

std::string_view valueOf(const Environment& environment, std::string_view name) {
  const auto found = environment.find(name);
  return found == environment.end() ? std::string_view() : std::string_view(found->second);
}

/// The length of one of our own sequences at the start of the text: ESC [ digits and a letter.
std::size_t ownSequence(std::string_view text) {
  if (!text.starts_with("\x1b[")) return 0;
  const std::size_t end = text.find_first_not_of("0123456789;", 2);
  const bool isOwn =
      end != std::string_view::npos && end <= 8 && (text[end] == 'm' || text[end] == 'K');
  return isOwn ? end + 1 : 0;
}

/// Whether a carriage return goes back to the start of a line of ours: before one of our sequences,
/// or at the end.
bool isOwnReturn(std::string_view rest) {
  return rest.size() == 1 || ownSequence(rest.substr(1)) > 0;
}

bool areSameFile(int one, int other) {
  struct stat first{}, second{};
  return ::fstat(one, &first) == 0 && ::fstat(other, &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

bool hasGone(int descriptor, int error) {
  struct stat kind{};
  // A terminal that was closed answers EIO.
  return error == EPIPE ||
         (error == EIO && ::fstat(descriptor, &kind) == 0 && S_ISCHR(kind.st_mode));
}

}  // namespace

std::string safeForTerminal(std::string_view text) {
  std::string safe;
  safe.reserve(text.size());
  while (!text.empty()) {
    const std::size_t plain = std::min(text.find_first_of("\x1b\r"), text.size());
    safe += sanitized(text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) break;
    std::size_t own = ownSequence(text);
    if (own == 0 && text.front() == '\r' && isOwnReturn(text)) own = 1;
    safe += own > 0 ? std::string(text.substr(0, own)) : sanitized(text.substr(0, 1));
    text.remove_prefix(std::max<std::size_t>(own, 1));
  }
  return safe;
}

Console::Console(MainQueue& main, Streams streams, const Environment& environment,
                 std::vector<std::string_view> commandNames)
    : main_(main),
      streams_(std::move(streams)),
      outputIsTerminal_(terminal::isTerminal(streams_.output)),
      style_(TerminalStyle::of(streams_.output, environment)),
      typedName_(valueOf(environment, "VANTRELL_COMMAND")),
      commandNames_(std::move(commandNames)),
      output_(main, streams_.output, streams_.mayWrite),
      error_() {
  if (!areSameFile(streams_.output, streams_.error)) {
    error_.emplace(main, streams_.error, streams_.mayWrite);
  }
}

std::size_t Console::columns() const {
  const auto size = terminal::size(streams_.output);
  if (!size || size->columns <= 0) return widestTable;
  return static_cast<std::size_t>(std::max(size->columns, narrowestTable));
}

void Console::write(std::string_view text) {
  if (text.empty()) return;
  std::string before = std::exchange(isStatusShown_, false) ? std::string(clearLine) : "";
  if (!question_.empty()) before += style_.isLive() ? clearLine : "\n";
  isMidLine_ = !text.ends_with('\n');
  output_.write(before);
  output_.write(outputIsTerminal_ ? safeForTerminal(text) : text);
  output_.write(question_);
}

void Console::status(std::string_view text) {
  if (!style_.isLive() || isMidLine_ || !question_.empty()) return;
  const auto shown = style_.dim(cutTo(onOneLine(text), style_.columns()));
  output_.write(fmt::format("{}{}\r", clearLine, shown));
  isStatusShown_ = true;
}

void Console::ask(std::string question) {
  write(std::exchange(isMidLine_, false) ? "\n" : "");
  if (std::exchange(isStatusShown_, false)) output_.write(clearLine);
  question_ = safeForTerminal(question);
  output_.write(question_);
}

void Console::withdrawQuestion() {
  if (!std::exchange(question_, {}).empty()) output_.write("\n");
}

void Console::wipeKey() {
  if (!question_.empty()) return withdrawQuestion();
  if (style_.isLive() && !isMidLine_) output_.write(clearLine);
  isStatusShown_ = false;
}

void Console::complain(std::string_view text) {
  writeError(fmt::format("vantrell: {}\n", sanitized(asTyped(text))));
}

void Console::prompt(std::string_view text) {
  writeError(safeForTerminal(asTyped(text)));
}

void Console::writeError(std::string_view text) {
  if (error_) return error_->write(text);
  const bool needsEnd = isMidLine_ && outputIsTerminal_;
  write(needsEnd ? fmt::format("\n{}", text) : std::string(text));
  isMidLine_ = false;
}

std::string Console::asTyped(std::string_view text) const {
  std::string typed(text);
  if (typedName_.empty()) return typed;
  const auto startsACommand = [this](std::string_view rest) {
    const auto word = rest.substr(0, rest.find_first_of(" \n\"'.,;)"));
    return rest.starts_with("--") || word == "help" || word == "COMMAND" ||
           std::ranges::find(commandNames_, word) != commandNames_.end();
  };
  constexpr std::string_view usual = "vantrell ";
  for (auto at = typed.find(usual); at != std::string::npos; at = typed.find(usual, at + 1)) {
    if (startsACommand(std::string_view(typed).substr(at + usual.size()))) {
      typed.replace(at, usual.size() - 1, typedName_);
    }
  }
  return typed;
}

void Console::finish(Duration limit, std::function<void(bool)> then) {
  limit_ = main_.after(limit, [then] { then(true); });
  output_.whenWritten([this, then = std::move(then)] {
    if (!limit_.isActive()) return;
    const int error = output_.error();
    const bool isWritten = error == 0 || hasGone(streams_.output, error);
    if (!isWritten) {
      complain(fmt::format("The output could not be written: {}.",
                           std::generic_category().message(error)));
    }
    const auto end = [this, isWritten, then] {
      if (!limit_.isActive()) return;
      limit_.cancel();
      then(isWritten);
    };
    return error_ ? error_->whenWritten(end) : end();
  });
}

}  // namespace vantrell::shell
