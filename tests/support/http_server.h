// A server on loopback that does with each connection exactly what a test says, good manners or
// not: raw bytes in, raw bytes out, with or without TLS. Each connection has a thread of its own,
// and the end of the server ends them all.
#pragma once

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cctype>
#include <csignal>
#include <functional>
#include <map>
#include <mutex>
#include <netinet/in.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <vector>

#include "platform/files/descriptor.h"
#include "support/certificate_authority.h"

namespace vantrell::tests {

struct ReceivedRequest {
  std::string method;
  std::string target;
  std::map<std::string, std::string> headers;  // names in lower case
  std::string body;
};

class ServerConnection {
 public:
  ServerConnection(int socket, SSL_CTX* tls) : socket_(socket) {
    if (!tls) return;
    tls_.reset(SSL_new(tls));
    SSL_set_fd(tls_.get(), socket);
    if (SSL_accept(tls_.get()) != 1) isOpen_ = false;
  }

  /// The next request with its body (of a given length); absent when the client has gone.
  std::optional<ReceivedRequest> read() {
    while (!buffer_.contains("\r\n\r\n")) {
      if (!receive()) return std::nullopt;
    }
    const auto headEnd = buffer_.find("\r\n\r\n");
    ReceivedRequest request = parsed(buffer_.substr(0, headEnd + 2));
    buffer_.erase(0, headEnd + 4);
    const auto length = request.headers.find("content-length");
    const std::size_t bodySize = length == request.headers.end() ? 0 : std::stoul(length->second);
    while (buffer_.size() < bodySize) {
      if (!receive()) return std::nullopt;
    }
    request.body = buffer_.substr(0, bodySize);
    buffer_.erase(0, bodySize);
    return request;
  }

  /// False when the client does not take it.
  bool send(std::string_view bytes) {
    while (isOpen_ && !bytes.empty()) {
      const auto sent = tls_ ? SSL_write(tls_.get(), bytes.data(), static_cast<int>(bytes.size()))
                             : ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent <= 0) return isOpen_ = false;
      bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return isOpen_;
  }
  bool answer(int status, std::string_view body, std::string_view headers = {}) {
    return send("HTTP/1.1 " + std::to_string(status) + " As Asked\r\n" + std::string(headers) +
                "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body));
  }
  int socket() const { return socket_; }
  /// Blocks until the client has closed the connection, or the server ends.
  void awaitClose() {
    while (receive()) {
    }
  }
  /// Ends the connection with a reset in place of a farewell.
  void reset() {
    const linger none{1, 0};
    ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    isOpen_ = false;
  }

 private:
  bool receive() {
    char bytes[16'384];
    const auto count = !isOpen_ ? 0
                       : tls_   ? SSL_read(tls_.get(), bytes, sizeof bytes)
                                : ::recv(socket_, bytes, sizeof bytes, 0);
    if (count <= 0) return isOpen_ = false;
    buffer_.append(bytes, static_cast<std::size_t>(count));
    return true;
  }
  static ReceivedRequest parsed(const std::string& head) {
    ReceivedRequest request;
    const auto lineEnd = head.find("\r\n");
    const auto first = head.find(' ');
    const auto second = head.find(' ', first + 1);
    request.method = head.substr(0, first);
    request.target = head.substr(first + 1, second - first - 1);
    for (auto at = lineEnd + 2; at < head.size();) {
      const auto end = head.find("\r\n", at);
      const auto colon = head.find(':', at);
      std::string name = head.substr(at, colon - at);
      std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::tolower(c); });
      const auto value = std::min(head.find_first_not_of(' ', colon + 1), end);
      request.headers[name] = head.substr(value, end - value);
      at = end + 2;
    }
    return request;
  }

  int socket_;
  std::unique_ptr<SSL, Release<SSL_free>> tls_;
  std::string buffer_;
  std::atomic<bool> isOpen_ = true;  // a test may send while the connection is read
};

class HttpServer {
 public:
  /// The handler runs on the thread of its connection, which is closed when it returns.
  using Handler = std::function<void(ServerConnection&)>;

  explicit HttpServer(Handler handler, OwnedTlsContext tls = nullptr)
      : handler_(std::move(handler)),
        tls_(std::move(tls)),
        listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener_.get(), raw, size) != 0 || ::listen(listener_.get(), 256) != 0 ||
        ::getsockname(listener_.get(), raw, &size) != 0) {
      throw std::runtime_error("no socket on loopback");
    }
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { accept(); });
  }
  /// Answers every request of a connection by a function of the request.
  static Handler answering(std::function<void(ServerConnection&, const ReceivedRequest&)> answer) {
    return [answer = std::move(answer)](ServerConnection& connection) {
      while (const auto request = connection.read()) answer(connection, *request);
    };
  }
  ~HttpServer() {
    ::shutdown(listener_.get(), SHUT_RDWR);
    acceptor_.join();
    {
      const std::lock_guard lock(mutex_);
      for (const auto& socket : sockets_) {
        if (socket) ::shutdown(socket.get(), SHUT_RDWR);
      }
    }
    for (auto& thread : threads_) thread.join();
  }
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  int port() const { return port_; }
  std::string url(const std::string& path = "/") const {
    return std::string(tls_ ? "https" : "http") + "://" + hostAndPort() + path;
  }
  std::string hostAndPort() const { return "127.0.0.1:" + std::to_string(port_); }
  int connections() const { return connections_; }

 private:
  void accept() {
    for (;;) {
      Descriptor socket(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!socket) return;
      ++connections_;
      const std::lock_guard lock(mutex_);
      const auto index = sockets_.size();
      sockets_.push_back(std::move(socket));
      threads_.emplace_back([this, index, number = sockets_.back().get()] {
        {
          // OpenSSL writes without MSG_NOSIGNAL.
          sigset_t pipe;
          ::sigemptyset(&pipe);
          ::sigaddset(&pipe, SIGPIPE);
          ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
          ServerConnection connection(number, tls_.get());
          handler_(connection);
        }
        const std::lock_guard ending(mutex_);
        sockets_[index].reset();
      });
    }
  }

  const Handler handler_;
  const OwnedTlsContext tls_;
  Descriptor listener_;
  int port_ = 0;
  std::atomic<int> connections_ = 0;
  std::mutex mutex_;  // guards sockets_
  std::vector<Descriptor> sockets_;
  std::vector<std::thread> threads_;
  std::thread acceptor_;
};

/// A port of this machine on which nobody listens.
inline int closedPort() {
  const HttpServer gone([](ServerConnection&) {});
  return gone.port();
}

}  // namespace vantrell::tests
