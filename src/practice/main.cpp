// vantrell-practice-agent: an agent without a model, to get to know Vantrell and to test it with.
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <poll.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

#include "platform/files/files.h"
#include "platform/queues/line_reader.h"
#include "platform/queues/run_loop.h"
#include "practice/agent.h"
#include "practice/directives.h"

namespace vantrell::practice {
namespace {

constexpr std::string_view introduction =
    "vantrell-practice-agent is a coding agent without a model. It speaks the Agent Client "
    "Protocol\n"
    "with the program that starts it, and does what the lines of a prompt tell it, no more: to get "
    "to\n"
    "know Vantrell without an account anywhere, and to test it.\n";

std::string help() {
  return fmt::format(
      "{}\n"
      "Usage: vantrell-practice-agent acp    speak the protocol on standard input and output\n"
      "       vantrell-practice-agent --help | --version\n"
      "\n"
      "Without arguments it speaks the protocol unless it is started on a terminal. Arguments "
      "that\n"
      "hosts give to other agents are accepted.\n"
      "\n"
      "Directives, each at the start of a line of the prompt:\n\n"
      "{}\n"
      "Sessions are kept in {}/vantrell-practice-agent.\n",
      introduction, directiveHelp(), files::stateFolder());
}

/// The permission mode of new sessions, as hosts spell it for agents that take it as an argument.
std::string modeFrom(const std::vector<std::string_view>& arguments) {
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] == "--always-approve") return "yolo";
    if (arguments[i] == "--permission-mode" && i + 1 < arguments.size() &&
        arguments[i + 1] == "auto") {
      return "auto";
    }
  }
  return "manual";
}

/// Puts nothing in the place of the pipe, so that no file opened later becomes standard input.
void closeStandardInput() {
  int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (nothing < 0 || ::dup2(nothing, STDIN_FILENO) < 0) ::close(STDIN_FILENO);
  ::close(nothing);
}

bool hostReads() {
  pollfd output{.fd = STDOUT_FILENO, .events = 0, .revents = 0};
  return ::poll(&output, 1, 0) == 0 || (output.revents & (POLLERR | POLLHUP)) == 0;
}

[[noreturn]] void serve(std::string version, std::string mode) {
  std::signal(SIGPIPE, SIG_IGN);
  // Never destroyed: the process ends by _Exit, whatever still waits for a host that does not read.
  auto& loop = *new RunLoop;
  auto& pool = *new BackgroundPool(1);
  auto& output = *new OutputWriter(loop, pool);
  output.onBroken = [] { std::_Exit(EXIT_SUCCESS); };

  std::shared_ptr<LineReader> input;
  Timer watchdog;
  auto closeInput = [&] {
    if (!input) return;
    input.reset();
    closeStandardInput();
    // The end of the host cannot be seen at the input any more.
    watchdog = loop.every(std::chrono::seconds(1), [] {
      if (!hostReads()) std::_Exit(EXIT_SUCCESS);
    });
  };
  PracticeAgent agent(loop, output,
                      {.version = std::move(version),
                       .stateFolder = files::stateFolder() + "/vantrell-practice-agent",
                       .mode = std::move(mode),
                       .closeInput = closeInput});
  const auto end = [&] {
    agent.keepRunningSessions();
    // What has been said already goes out, if the host takes it.
    output.write(STDOUT_FILENO, "", [] { std::_Exit(EXIT_SUCCESS); });
    watchdog = loop.after(std::chrono::milliseconds(200), [] { std::_Exit(EXIT_SUCCESS); });
  };
  input = LineReader::begin(loop, {.descriptor = STDIN_FILENO,
                                   .onLine = [&](const std::string& line) { agent.receive(line); },
                                   .onEnd = end,
                                   .isInForeground = {}});
  loop.run();
  std::_Exit(EXIT_SUCCESS);
}

int run(const std::vector<std::string_view>& arguments) {
  for (auto argument : arguments) {
    if (argument == "--help" || argument == "-h") {
      fmt::print("{}", help());
      return EXIT_SUCCESS;
    }
    if (argument == "--version") {
      fmt::print("vantrell-practice-agent {}\n", VANTRELL_VERSION);
      return EXIT_SUCCESS;
    }
  }
  if (arguments.empty() && ::isatty(STDIN_FILENO) != 0) {
    fmt::print("{}\nTo see what it can be told: vantrell-practice-agent --help\n", introduction);
    return EXIT_SUCCESS;
  }
  serve(VANTRELL_VERSION, modeFrom(arguments));
}

}  // namespace
}  // namespace vantrell::practice

int main(int count, char** arguments) {
  return vantrell::practice::run({arguments + 1, arguments + count});
}
