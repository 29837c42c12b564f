#include "project/git.h"

#include <charconv>
#include <fmt/format.h>
#include <future>

#include "platform/text/text.h"

namespace vantrell {

namespace {

constexpr std::string_view executable = "/usr/bin/git";
constexpr std::size_t keptErrors = 1 << 20;  // bytes

/// No program of the project or of the user runs in our commands, apart from filters, which belong
/// to the content: a hook that fails or writes would leave a restore half way, and a question could
/// not be answered. Counts more than all other configuration.
const std::vector<std::pair<std::string, std::string>>& withoutOtherPrograms() {
  static const std::vector<std::pair<std::string, std::string>> configuration{
      {"core.hooksPath", "/dev/null"},
      {"core.fsmonitor", "false"},
      {"core.askPass", ""},
      {"credential.helper", ""},
      {"gc.auto", "0"},
      {"maintenance.auto", "false"},
  };
  return configuration;
}

/// Of GIT_*, what is the user's choice and not a state of some other command.
bool isUsersChoice(std::string_view name) {
  constexpr auto choices = std::to_array<std::string_view>(
      {"GIT_CONFIG_GLOBAL", "GIT_CONFIG_SYSTEM", "GIT_CONFIG_NOSYSTEM", "GIT_CONFIG_COUNT",
       "GIT_ATTR_NOSYSTEM", "GIT_CEILING_DIRECTORIES", "GIT_DISCOVERY_ACROSS_FILESYSTEM",
       "GIT_EXEC_PATH", "GIT_SSH", "GIT_SSH_COMMAND"});
  constexpr auto families = std::to_array<std::string_view>(
      {"GIT_CONFIG_KEY_", "GIT_CONFIG_VALUE_", "GIT_AUTHOR_", "GIT_COMMITTER_", "GIT_LFS_"});
  return std::ranges::find(choices, name) != choices.end() ||
         std::ranges::any_of(families, [&](auto family) { return name.starts_with(family); });
}

/// Adds to what the environment configures already.
void configure(Environment& environment,
               const std::vector<std::pair<std::string, std::string>>& configuration) {
  if (configuration.empty()) return;
  std::size_t count = 0;
  if (const auto old = environment.find("GIT_CONFIG_COUNT"); old != environment.end()) {
    const std::string& text = old->second;
    std::from_chars(text.data(), text.data() + text.size(), count);
  }
  for (const auto& [name, value] : configuration) {
    environment[fmt::format("GIT_CONFIG_KEY_{}", count)] = name;
    environment[fmt::format("GIT_CONFIG_VALUE_{}", count)] = value;
    ++count;
  }
  environment["GIT_CONFIG_COUNT"] = std::to_string(count);
}

/// Where the output of all commands is handled: callers wait, so the threads that they wait on must
/// not be theirs. Never destroyed, as children may outlive every other object.
BackgroundPool& handlerPool() {
  static auto* const pool = new BackgroundPool(2);
  return *pool;
}

/// Adds as much as there is room for; false when something was left out.
bool append(std::string& kept, std::string_view bytes, std::size_t limit) {
  kept.append(bytes.substr(0, limit - kept.size()));
  return kept.size() < limit || bytes.empty();
}

/// One command. Its fields belong to its queue until the caller has been answered.
struct Command {
  GitOptions options;
  GitResult result;
  std::promise<void> end;
  bool isOver = false;
  std::size_t written = 0;

  void finish(int status) {
    if (std::exchange(isOver, true)) return;
    result.status = status;
    end.set_value();
  }
  void output(std::string_view bytes) {
    if (isOver) return;
    written += bytes.size();
    append(result.output, bytes, options.keptOutput);
    result.wasCut = written > result.output.size();
  }
};

}  // namespace

std::string GitResult::text() const {
  return std::string(text::trimmed(text::repaired(output)));
}

std::vector<std::string> GitResult::parts() const {
  std::vector<std::string> parts;
  for (const auto part : text::split(output, '\0')) {
    if (!part.empty()) parts.emplace_back(part);
  }
  return parts;
}

Environment gitEnvironment() {
  Environment environment = currentEnvironment();
  std::erase_if(environment, [](const auto& variable) {
    return variable.first.starts_with("GIT_") && !isUsersChoice(variable.first);
  });
  environment.erase("SSH_ASKPASS");
  environment["GIT_TERMINAL_PROMPT"] = "0";
  return environment;
}

GitResult runGit(const std::string& path, std::vector<std::string> arguments, GitOptions options) {
  ProcessOptions process;
  process.executable = executable;
  process.arguments = {"-C", path};
  // Commands of the user's that print differences cannot be taken back by configuration.
  if (!arguments.empty() && arguments.front().starts_with("diff")) {
    arguments.insert(arguments.begin() + 1, {"--no-ext-diff", "--no-textconv"});
  }
  std::ranges::move(arguments, std::back_inserter(process.arguments));
  process.environment = gitEnvironment();
  if (options.isReadOnly) process.environment["GIT_OPTIONAL_LOCKS"] = "0";
  configure(process.environment, options.configuration);
  configure(process.environment, withoutOtherPrograms());
  for (const auto& [name, value] : options.environment) process.environment[name] = value;
  process.standardInput = options.input ? ProcessOptions::Input::pipe : ProcessOptions::Input::null;
  process.mergeErrorIntoOutput = !options.errorsApart;
  process.ownSession = true;

  const auto limit = options.limit;
  const std::stop_token stop = options.stop;
  auto input = std::exchange(options.input, std::nullopt);
  const auto command = std::make_shared<Command>();
  command->options = std::move(options);
  auto ended = command->end.get_future();

  const SerialQueue queue(handlerPool(), "com.local.vantrell.git");
  Process::Handlers handlers;
  handlers.onOutput = [command](std::string_view bytes) { command->output(bytes); };
  handlers.onError = [command](std::string_view bytes) {
    append(command->result.errors, bytes, keptErrors);
  };
  handlers.onExit = [command](ExitStatus status) { command->finish(status.code()); };
  auto started = Process::start(std::move(process), queue, std::move(handlers));
  if (!started) return {.output = started.error().description};
  if (input) {
    (*started)->write(*std::move(input));
    (*started)->closeInput();
  }

  {
    const std::stop_callback whenStopped(stop,
                                         [&] { queue.post([command] { command->finish(-1); }); });
    if (!limit) {
      ended.wait();
    } else {
      ended.wait_for(*limit);
    }
  }
  (*started)->stop();
  // Behind this, no handler touches the command any more.
  std::promise<void> quiet;
  queue.post([&] {
    command->result.hasRunOut = !std::exchange(command->isOver, true);
    quiet.set_value();
  });
  quiet.get_future().wait();
  return std::move(command->result);
}

}  // namespace vantrell
