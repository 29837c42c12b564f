#include "app/control/command_server.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <unistd.h>
#include <vector>

#include "platform/files/files.h"
#include "platform/files/files_system.h"
#include "platform/queues/dispatch.h"
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
  void endBySignal(int number) override { tell(controlMessage::killed, std::to_string(number)); }
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
  // Only what is in memory is read without waiting.
  if (::fcntl(file, F_GET_SEALS) < 0 || !files::readAll(file, bytes, HandedCommand::maxBytes + 1)) {
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
  Server(MainQueue& main, std::string supportFolder, Handler handler)
      : main_(main),
        supportFolder_(std::move(supportFolder)),
        handler_(std::make_shared<Handler>(std::move(handler))) {}
  ~Server() override { ::unlink(controlRecord(supportFolder_).c_str()); }

  std::expected<void, std::string> listen() {
    check_ = main_.every(controlSocketCheck, [this] {
      const auto path = controlSocketOf(::getpid(), supportFolder_);
      if (!path || !files::exists(*path)) static_cast<void>(listenAgain());
    });
    return listenAgain();
  }

 private:
  std::expected<void, std::string> listenAgain() {
    auto folders = localSocket::folders(applicationName);
    folders.push_back(supportFolder_);
    std::string failure;
    for (const auto& folder : folders) {
      sweep(folder);
      const auto path = fmt::format("{}/{}.sock", folder, ::getpid());
      auto server = LocalSocketServer::listen(
          main_, path, [handler = handler_](const auto& connection) { take(connection, handler); });
      if (!server) {
        failure = std::move(server.error());
        continue;
      }
      // An earlier one keeps its connections.
      servers_.push_back(*std::move(server));
      return record(path);
    }
    return std::unexpected(failure);
  }

  /// Half of it names no socket, so it need not be written in one step, which would wait for the
  /// disk.
  std::expected<void, std::string> record(const std::string& path) {
    const auto name = controlRecord(supportFolder_);
    const Descriptor file(
        ::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (file && files::writeAll(file.get(), path)) return {};
    return std::unexpected(
        fmt::format("The file {} could not be written: {}.", name, std::strerror(errno)));
  }

  /// Removes the sockets of processes that were killed.
  static void sweep(const std::string& folder) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
      const auto& path = entry.path();
      const auto process = static_cast<pid_t>(std::atol(path.stem().c_str()));
      const bool hasEnded = process > 0 && ::kill(process, 0) != 0 && errno == ESRCH;
      // One of another container may have that number there.
      if (path.extension() == ".sock" && hasEnded && !localSocket::connect(path)) {
        ::unlink(path.c_str());
      }
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

  MainQueue& main_;
  const std::string supportFolder_;
  const std::shared_ptr<Handler> handler_;
  std::vector<std::unique_ptr<LocalSocketServer>> servers_;
  Timer check_;
};

}  // namespace

std::expected<std::unique_ptr<CommandServer>, std::string> CommandServer::listen(
    MainQueue& main, std::string supportFolder, Handler handler) {
  auto server = std::make_unique<Server>(main, std::move(supportFolder), std::move(handler));
  if (auto listening = server->listen(); !listening) {
    return std::unexpected(std::move(listening.error()));
  }
  return server;
}

}  // namespace vantrell
