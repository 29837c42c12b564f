#include "app/control/command_server.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "platform/files/files.h"
#include "platform/files/files_system.h"
#include "platform/sockets/local_socket.h"
#include "platform/terminal/terminal.h"
#include "records/values/application.h"

namespace vantrell {

namespace {

using Connection = LocalSocketServer::Connection;

class Incoming final : public IncomingCommand {
 public:
  explicit Incoming(const std::shared_ptr<Connection>& connection) : connection_(connection) {}

  std::shared_ptr<void> watchSignals(SignalHandler handler) override {
    auto watch = std::make_shared<SignalHandler>(std::move(handler));
    watches_.push_back(watch);
    return watch;
  }

  void end(int status) override { tell(controlMessage::ended, std::to_string(status)); }
  void refuse(std::string_view why) override { tell(controlMessage::refused, why); }

  void tell(char kind, std::string_view text) {
    const auto connection = std::exchange(connection_, {}).lock();
    if (!connection) return;
    connection->send(fmt::format("{}{}", kind, text));
    connection->close();
  }

  void hear(int signal) override {
    std::erase_if(watches_, [](const auto& each) { return each.expired(); });
    if (watches_.empty() && onUnwatchedSignal) return onUnwatchedSignal(signal);
    for (const auto& each : std::vector(watches_)) {
      if (const auto handler = each.lock()) (*handler)(signal);
    }
  }

 private:
  std::weak_ptr<Connection> connection_;  // which holds this command
  std::vector<std::weak_ptr<SignalHandler>> watches_;
};

/// The command of the message, or why it cannot be carried out.
std::expected<HandedCommand, std::string> commandIn(const localSocket::Message& message) {
  std::string bytes;
  const int file = message.descriptors.front().get();
  struct stat info{};
  // Only a file is read without waiting.
  if (::fstat(file, &info) != 0 || !S_ISREG(info.st_mode) ||
      !files::readAll(file, bytes, HandedCommand::maxBytes + 1)) {
    return std::unexpected("The command could not be read.");
  }
  if (const auto version = HandedCommand::versionIn(bytes); version != applicationVersion) {
    return std::unexpected(fmt::format(
        "Vantrell {} is running (process {}), and this is version {}. Nothing was changed; end "
        "that one, or use its version.",
        applicationVersion, ::getpid(), version));
  }
  auto command =
      bytes.size() > HandedCommand::maxBytes ? std::nullopt : HandedCommand::decoded(bytes);
  if (!command) return std::unexpected("The command is too large, or damaged on its way.");
  return *std::move(command);
}

class Server final : public CommandServer {
 public:
  explicit Server(Handler handler) : handler_(std::make_shared<Handler>(std::move(handler))) {}

  std::expected<void, std::string> listen(MainQueue& main) {
    const auto path = controlSocketOf(::getpid());
    if (!path) return std::unexpected(path.error());
    sweep(files::parent(*path));
    auto server = LocalSocketServer::listen(
        main, *path, [handler = handler_](const auto& connection) { take(connection, handler); });
    if (!server) return std::unexpected(std::move(server.error()));
    server_ = *std::move(server);
    return {};
  }

 private:
  /// Removes the sockets of processes that were killed.
  static void sweep(const std::string& folder) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
      const auto& path = entry.path();
      const auto process = static_cast<pid_t>(std::atol(path.stem().c_str()));
      const bool hasEnded = process > 0 && ::kill(process, 0) != 0 && errno == ESRCH;
      if (path.extension() == ".sock" && hasEnded) ::unlink(path.c_str());
    }
  }

  static void take(const std::shared_ptr<Connection>& connection,
                   const std::shared_ptr<Handler>& handler) {
    const auto incoming = std::make_shared<Incoming>(connection);
    incoming->caller = connection->process();
    connection->onClosed = [incoming] { incoming->hear(SIGHUP); };
    connection->onMessage = [incoming, handler](localSocket::Message message) {
      const char kind = message.bytes.front();
      if (kind == controlMessage::signal) {
        incoming->hear(std::atoi(message.bytes.c_str() + 1));
      } else if (kind == controlMessage::command && message.descriptors.size() == 4) {
        auto command = commandIn(message);
        if (!command) return incoming->refuse(command.error());
        incoming->command = *std::move(command);
        incoming->input = std::move(message.descriptors[1]);
        incoming->output = std::move(message.descriptors[2]);
        incoming->error = std::move(message.descriptors[3]);
        // The system stops a process that reads its own terminal in the background, as this one is
        // while its terminal starts other commands.
        if (terminal::isOwn(incoming->input.get())) {
          incoming->input = Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        }
        (*handler)(incoming);
      }
    };
  }

  const std::shared_ptr<Handler> handler_;
  std::unique_ptr<LocalSocketServer> server_;
};

}  // namespace

std::expected<std::unique_ptr<CommandServer>, std::string> CommandServer::listen(MainQueue& main,
                                                                                 Handler handler) {
  auto server = std::make_unique<Server>(std::move(handler));
  if (auto listening = server->listen(main); !listening) {
    return std::unexpected(std::move(listening.error()));
  }
  return server;
}

}  // namespace vantrell
