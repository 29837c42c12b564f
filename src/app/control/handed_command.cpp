#include "app/control/handed_command.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <csignal>
#include <fmt/format.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/process/own_process.h"
#include "platform/sockets/local_socket.h"
#include "platform/terminal/terminal.h"
#include "records/values/application.h"

namespace vantrell {

namespace {

constexpr int failed = 1;
constexpr int leaveAfter = 2500;  // milliseconds

/// The words of `bytes`, each ended by NUL.
std::optional<std::vector<std::string_view>> wordsOf(std::string_view bytes) {
  if (!bytes.empty() && bytes.back() != '\0') return std::nullopt;
  std::vector<std::string_view> words;
  while (!bytes.empty()) {
    const auto end = bytes.find('\0');
    words.push_back(bytes.substr(0, end));
    bytes.remove_prefix(end + 1);
  }
  return words;
}

/// Signals that the command hears in place of this process.
class HeldSignals {
 public:
  HeldSignals() {
    sigset_t held;
    sigemptyset(&held);
    for (const int each : signalsOfUser()) sigaddset(&held, each);
    ::pthread_sigmask(SIG_BLOCK, &held, &before_);
    descriptor_ = Descriptor(::signalfd(-1, &held, SFD_CLOEXEC | SFD_NONBLOCK));
  }
  ~HeldSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  int descriptor() const { return descriptor_.get(); }
  std::optional<int> next() const {
    signalfd_siginfo info{};
    if (::read(descriptor_.get(), &info, sizeof info) != sizeof info) return std::nullopt;
    return static_cast<int>(info.ssi_signo);
  }

 private:
  sigset_t before_{};
  Descriptor descriptor_;
};

std::optional<int> numberIn(std::string_view text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isWhole = error == std::errc() && end == text.data() + text.size();
  return isWhole ? std::optional(number) : std::nullopt;
}

}  // namespace

std::string HandedCommand::encoded() const {
  std::string bytes;
  const auto add = [&](std::string_view word) { bytes.append(word).push_back('\0'); };
  add(version);
  add(folder);
  add(std::to_string(arguments.size()));
  for (const auto& each : arguments) add(each);
  for (const auto& [name, value] : environment) add(name + "=" + value);
  return bytes;
}

std::string HandedCommand::versionIn(std::string_view bytes) {
  return std::string(bytes.substr(0, bytes.find('\0')));
}

std::optional<HandedCommand> HandedCommand::decoded(std::string_view bytes) {
  const auto words = wordsOf(bytes);
  if (!words || words->size() < 3) return std::nullopt;
  const auto count = numberIn((*words)[2]);
  if (!count || *count < 0 || words->size() - 3 < static_cast<std::size_t>(*count)) {
    return std::nullopt;
  }
  HandedCommand command{.version = std::string((*words)[0]),
                        .folder = std::string((*words)[1]),
                        .arguments = {},
                        .environment = {}};
  const auto rest = std::span(*words).subspan(3);
  for (const auto each : rest.first(*count)) command.arguments.emplace_back(each);
  for (const auto each : rest.subspan(*count)) {
    const auto equals = each.find('=');
    if (equals == std::string_view::npos) return std::nullopt;
    command.environment.insert_or_assign(std::string(each.substr(0, equals)),
                                         std::string(each.substr(equals + 1)));
  }
  return command;
}

Environment environmentToHandOver(const Environment& all) {
  static constexpr auto names = std::to_array<std::string_view>({"TERM",
                                                                 "COLORTERM",
                                                                 "NO_COLOR",
                                                                 "CLICOLOR",
                                                                 "CLICOLOR_FORCE",
                                                                 "FORCE_COLOR",
                                                                 "COLUMNS",
                                                                 "LINES",
                                                                 "LANG",
                                                                 "LC_ALL",
                                                                 "LC_CTYPE",
                                                                 "TZ",
                                                                 "HOME",
                                                                 "PATH",
                                                                 "PAGER",
                                                                 "EDITOR",
                                                                 "VISUAL",
                                                                 "DISPLAY",
                                                                 "WAYLAND_DISPLAY",
                                                                 "VANTRELL_COMMAND",
                                                                 "VANTRELL_PRACTICE_AGENT"});
  Environment some;
  for (const auto& each : all) {
    if (std::ranges::find(names, each.first) != names.end()) some.insert(each);
  }
  return some;
}

std::string controlRecord(const std::string& supportFolder) {
  return supportFolder + "/commands";
}

std::optional<std::string> controlSocketOf(pid_t owner, const std::string& supportFolder) {
  auto path = files::read(controlRecord(supportFolder));
  const bool isOwners = path && path->ends_with(fmt::format("/{}.sock", owner));
  return isOwners ? std::optional(*std::move(path)) : std::nullopt;
}

/// Waits a little where the owner is about to make its socket again.
static std::optional<Descriptor> connectTo(pid_t owner, const std::string& supportFolder) {
  const auto limit = std::chrono::steady_clock::now() + 2 * controlSocketCheck;
  while (const auto path = controlSocketOf(owner, supportFolder)) {
    auto socket = localSocket::connect(*path);
    const bool isEnding = ::kill(owner, 0) != 0;
    if (socket || isEnding || std::chrono::steady_clock::now() > limit) return socket;
    ::poll(nullptr, 0, 50);
  }
  return std::nullopt;
}

std::optional<HandedCommandEnd> handOver(pid_t owner, const std::string& supportFolder,
                                         const HandedCommand& command,
                                         const std::function<void(std::string_view)>& complain) {
  auto socket = connectTo(owner, supportFolder);
  if (!socket) return std::nullopt;
  const HeldSignals signals;
  const auto file = localSocket::memoryFile(command.encoded());
  if (!file) {
    complain(fmt::format("The command could not be handed over: {}.", file.error()));
    return HandedCommandEnd{failed};
  }
  // The owner may hide what is typed, and end before it shows it again.
  const terminal::SavedMode mode(STDIN_FILENO);
  const auto lost = [&] {
    complain(fmt::format(
        "The Vantrell process that worked for this command (process {}) has ended before it.",
        owner));
    return HandedCommandEnd{failed};
  };
  const std::array streams{file->get(), STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
  if (!localSocket::send(socket->get(), {&controlMessage::command, 1}, streams)) return lost();
  int signalsHeard = 0, last = 0;
  while (true) {
    pollfd waiting[] = {{socket->get(), POLLIN, 0}, {signals.descriptor(), POLLIN, 0}};
    // The owner may be stopped: after two signals the user does not wait for it any longer.
    const int ready = ::poll(waiting, std::size(waiting), signalsHeard < 2 ? -1 : leaveAfter);
    if (ready < 0) continue;
    if (ready == 0) return HandedCommandEnd{.signal = last};
    if (waiting[0].revents != 0) {
      const auto message = localSocket::receive(socket->get());
      if (!message) return lost();
      const std::string_view text = std::string_view(message->bytes).substr(1);
      const char kind = message->bytes.front();
      const auto number = numberIn(text).value_or(failed);
      if (kind == controlMessage::ended) return HandedCommandEnd{number};
      if (kind == controlMessage::killed) return HandedCommandEnd{.signal = number};
      complain(text);
      return HandedCommandEnd{failed};
    }
    while (const auto signal = signals.next()) {
      ++signalsHeard;
      last = *signal;
      localSocket::send(socket->get(), fmt::format("{}{}", controlMessage::signal, *signal));
    }
  }
}

}  // namespace vantrell
