#include "platform/sockets/local_socket.h"

#include <cstring>
#include <fmt/format.h>
#include <mutex>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

#include "platform/files/files_system.h"
#include "platform/queues/dispatch.h"

namespace vantrell {

namespace localSocket {

namespace {

std::optional<sockaddr_un> addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return std::nullopt;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

std::optional<ucred> peerOf(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return std::nullopt;
  return peer;
}

bool isOwnFolder(const std::string& path) {
  struct stat found{};
  return ::lstat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode) &&
         found.st_uid == ::geteuid();
}

}  // namespace

std::vector<std::string> folders(std::string_view application) {
  std::vector<std::string> wanted, usable;
  const char* named = std::getenv("XDG_RUNTIME_DIR");
  for (const auto& runtime :
       {std::string(named ? named : ""), fmt::format("/run/user/{}", ::geteuid())}) {
    if (runtime.starts_with('/') && isOwnFolder(runtime)) {
      wanted.push_back(fmt::format("{}/{}", runtime, application));
    }
  }
  wanted.push_back(fmt::format("/tmp/{}-{}", application, ::geteuid()));
  for (auto& path : wanted) {
    const bool isThere = ::mkdir(path.c_str(), 0700) == 0 || errno == EEXIST;
    if (isThere && isOwnFolder(path) && ::chmod(path.c_str(), 0700) == 0) {
      usable.push_back(std::move(path));
    }
  }
  return usable;
}

std::optional<Descriptor> connect(const std::string& path) {
  const auto address = addressOf(path);
  Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (!address || !socket ||
      ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0) {
    return std::nullopt;
  }
  const auto peer = peerOf(socket.get());
  if (!peer || peer->uid != ::geteuid()) return std::nullopt;
  return socket;
}

bool send(int socket, std::string_view bytes, std::span<const int> descriptors) {
  alignas(cmsghdr) char control[CMSG_SPACE(maxDescriptors * sizeof(int))] = {};
  iovec part{const_cast<char*>(bytes.data()), bytes.size()};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  if (!descriptors.empty()) {
    message.msg_control = control;
    message.msg_controllen = CMSG_SPACE(descriptors.size_bytes());
    cmsghdr* const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(descriptors.size_bytes());
    std::memcpy(CMSG_DATA(header), descriptors.data(), descriptors.size_bytes());
  }
  ssize_t sent = 0;
  do {
    sent = ::sendmsg(socket, &message, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(bytes.size());
}

std::optional<Message> receive(int socket) {
  alignas(cmsghdr) char control[CMSG_SPACE(maxDescriptors * sizeof(int))] = {};
  Message received;
  received.bytes.resize(maxMessage);
  iovec part{received.bytes.data(), received.bytes.size()};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof control;
  ssize_t size = 0;
  do {
    size = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
  } while (size < 0 && errno == EINTR);
  for (cmsghdr* each = size > 0 ? CMSG_FIRSTHDR(&message) : nullptr; each;
       each = CMSG_NXTHDR(&message, each)) {
    if (each->cmsg_level != SOL_SOCKET || each->cmsg_type != SCM_RIGHTS) continue;
    const std::size_t count = (each->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count; ++i) {
      int number = -1;
      std::memcpy(&number, CMSG_DATA(each) + i * sizeof number, sizeof number);
      received.descriptors.emplace_back(number);
    }
  }
  const bool isCut = (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0;
  if (size <= 0 || isCut) return std::nullopt;
  received.bytes.resize(static_cast<std::size_t>(size));
  return received;
}

std::expected<Descriptor, std::string> memoryFile(std::string_view bytes) {
  Descriptor file(::memfd_create("message", MFD_CLOEXEC));
  if (!file || !files::writeAll(file.get(), bytes) || ::lseek(file.get(), 0, SEEK_SET) != 0) {
    return std::unexpected(std::string(std::strerror(errno)));
  }
  return file;
}

}  // namespace localSocket

namespace {

class SocketConnection final : public LocalSocketServer::Connection {
 public:
  SocketConnection(Descriptor socket, pid_t process)
      : socket_(std::move(socket)), process_(process) {}

  pid_t process() const override { return process_; }
  void send(std::string_view bytes) override {
    if (!isClosed_) localSocket::send(socket_.get(), bytes);
  }
  // The reading thread closes the descriptor, once it has taken it out of its poll.
  void close() override {
    isClosed_ = true;
    ::shutdown(socket_.get(), SHUT_RDWR);
  }

  void deliver(std::optional<localSocket::Message> message) {
    if (message) {
      if (!isClosed_ && onMessage) onMessage(*std::move(message));
      return;
    }
    onMessage = nullptr;
    const auto closed = std::exchange(onClosed, nullptr);
    if (!std::exchange(isClosed_, true) && closed) closed();
  }
  int socket() const { return socket_.get(); }

 private:
  const Descriptor socket_;
  const pid_t process_;
  bool isClosed_ = false;
};

class Server final : public LocalSocketServer {
 public:
  Server(MainQueue& main, std::string path, Descriptor listening, Accept accept)
      : main_(main),
        path_(std::move(path)),
        listening_(std::move(listening)),
        wake_(::eventfd(0, EFD_CLOEXEC)),
        accept_(std::make_shared<Accept>(std::move(accept))),
        thread_([this](const std::stop_token& stop) { read(stop); }) {}

  ~Server() override {
    ::unlink(path_.c_str());
    *accept_ = nullptr;
    thread_.request_stop();
    ::eventfd_write(wake_.get(), 1);
  }

 private:
  void read(const std::stop_token& stop) {
    std::vector<std::shared_ptr<SocketConnection>> connections;
    bool canAccept = true;  // not where this process has no descriptor left: it tries again later
    while (!stop.stop_requested()) {
      std::vector<pollfd> waiting{{wake_.get(), POLLIN, 0},
                                  {canAccept ? listening_.get() : -1, POLLIN, 0}};
      for (const auto& each : connections) waiting.push_back({each->socket(), POLLIN, 0});
      if (::poll(waiting.data(), waiting.size(), std::exchange(canAccept, true) ? -1 : 100) < 0) {
        continue;
      }
      for (std::size_t i = connections.size(); i-- > 0;) {
        if (waiting[i + 2].revents == 0) continue;
        auto message = localSocket::receive(connections[i]->socket());
        const bool isOver = !message;
        main_.post([connection = connections[i], message = std::move(message)]() mutable {
          connection->deliver(std::move(message));
        });
        if (isOver) connections.erase(connections.begin() + static_cast<std::ptrdiff_t>(i));
      }
      if (waiting[1].revents != 0) {
        auto connection = acceptOne();
        canAccept = connection || (errno != EMFILE && errno != ENFILE);
        if (connection) connections.push_back(std::move(connection));
      }
    }
  }

  std::shared_ptr<SocketConnection> acceptOne() {
    Descriptor socket(::accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    const auto peer = socket ? localSocket::peerOf(socket.get()) : std::nullopt;
    if (!peer || peer->uid != ::geteuid()) return nullptr;
    auto connection = std::make_shared<SocketConnection>(std::move(socket), peer->pid);
    main_.post([connection, accept = accept_] {
      if (*accept) (*accept)(connection);
    });
    return connection;
  }

  MainQueue& main_;
  const std::string path_;
  const Descriptor listening_, wake_;
  const std::shared_ptr<Accept> accept_;
  std::jthread thread_;
};

}  // namespace

std::expected<std::unique_ptr<LocalSocketServer>, std::string> LocalSocketServer::listen(
    MainQueue& main, const std::string& path, Accept accept) {
  const auto failed = [&] {
    return std::unexpected(
        fmt::format("The socket {} could not be opened: {}.", path, std::strerror(errno)));
  };
  const auto address = localSocket::addressOf(path);
  if (!address) return std::unexpected(fmt::format("The path {} is too long for a socket.", path));
  Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (!socket) return failed();
  ::unlink(path.c_str());
  const bool isBound =
      ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) == 0;
  // Connections are refused before listen(), so the mode is right from the first one on.
  if (!isBound || ::chmod(path.c_str(), 0600) != 0 || ::listen(socket.get(), SOMAXCONN) != 0) {
    return failed();
  }
  return std::make_unique<Server>(main, path, std::move(socket), std::move(accept));
}

}  // namespace vantrell
