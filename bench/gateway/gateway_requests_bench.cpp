// What a request to the gateway costs beside the least there is: a thread that accepts, reads and
// answers with the same bytes. And what a silent connection holds in memory.
#include <arpa/inet.h>
#include <future>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>

#include "platform/files/descriptor.h"
#include "platform/queues/run_loop.h"
#include "process_memory.h"
#include "ratio.h"
#include "support/gateway_parts.h"

using namespace vantrell;

namespace {

constexpr int callersAtOnce = 16;
constexpr int requestsInRound = 320;

sockaddr_in addressOf(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

Descriptor connectTo(int port) {
  Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const auto address = addressOf(port);
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    std::abort();
  }
  return socket;
}

std::string readAll(int socket) {
  std::string all;
  char bytes[16'384];
  for (ssize_t count; (count = ::recv(socket, bytes, sizeof bytes, 0)) > 0;) {
    all.append(bytes, static_cast<std::size_t>(count));
  }
  return all;
}

/// Several callers at once, each with one request and its answer.
bench::Clock::duration askOften(int port, const std::string& request) {
  return bench::timed([&] {
    for (int round = 0; round < requestsInRound / callersAtOnce; ++round) {
      std::vector<Descriptor> callers;
      for (int each = 0; each < callersAtOnce; ++each) {
        callers.push_back(connectTo(port));
        ::send(callers.back().get(), request.data(), request.size(), MSG_NOSIGNAL);
      }
      for (const auto& caller : callers) {
        if (!readAll(caller.get()).starts_with("HTTP/1.1 200 ")) std::abort();
      }
    }
  });
}

class BareServer {
 public:
  explicit BareServer(std::string answer) : answer_(std::move(answer)) {
    auto address = addressOf(0);
    socklen_t size = sizeof address;
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (::bind(socket_.get(), raw, size) != 0 || ::listen(socket_.get(), SOMAXCONN) != 0 ||
        ::getsockname(socket_.get(), raw, &size) != 0) {
      std::abort();
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
  }
  ~BareServer() {
    ::shutdown(socket_.get(), SHUT_RDWR);
    thread_.join();
  }
  int port() const { return port_; }

 private:
  void serve() {
    for (;;) {
      const Descriptor caller(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!caller) return;
      std::string request;
      char bytes[16'384];
      while (!request.contains("\r\n\r\n")) {
        const auto count = ::recv(caller.get(), bytes, sizeof bytes, 0);
        if (count <= 0) break;
        request.append(bytes, static_cast<std::size_t>(count));
      }
      ::send(caller.get(), answer_.data(), answer_.size(), MSG_NOSIGNAL);
    }
  }

  const std::string answer_;
  const Descriptor socket_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  int port_ = 0;
  std::thread thread_;
};

/// On a thread of its own, as in the program.
class Gateway {
 public:
  Gateway() {
    std::promise<void> ready;
    thread_ = std::thread([&] {
      RunLoop loop;
      tests::GatewayParts parts(loop);
      if (!parts.module.server.start("127.0.0.1", 0)) std::abort();
      loop_ = &loop;
      port_ = parts.module.server.port();
      key_ = parts.key;
      ready.set_value();
      loop.run();
    });
    ready.get_future().wait();
  }
  ~Gateway() {
    loop_->quit();
    thread_.join();
  }
  int port() const { return port_; }
  const std::string& key() const { return key_; }

 private:
  RunLoop* loop_ = nullptr;
  int port_ = 0;
  std::string key_;
  std::thread thread_;
};

double memoryOfSilentConnection(int port, const std::string& request) {
  constexpr int count = GatewayServer::mostConnections - callersAtOnce;
  const auto before = bench::memory("VmRSS");
  std::vector<Descriptor> silent;
  for (int each = 0; each < count; ++each) silent.push_back(connectTo(port));
  askOften(port, request);  // so all of them have been accepted
  return (bench::memory("VmRSS") - before) / count;
}

}  // namespace

int main() {
  const Gateway gateway;
  const auto request = "GET /v1/projects HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer " +
                       gateway.key() + "\r\nAccept: application/json\r\n\r\n";
  const auto once = connectTo(gateway.port());
  ::send(once.get(), request.data(), request.size(), MSG_NOSIGNAL);
  const BareServer bare(readAll(once.get()));
  // 16 callers, the gateway's two threads and the bare server's one share the machine: judged by
  // the best rounds, see bestRatio().
  const auto found = bench::compareUntilSteady(
      60, 600, [&] { return askOften(gateway.port(), request); },
      [&] { return askOften(bare.port(), request); });
  int failed = bench::report({"requests a second lost: the time of GET /v1/projects",
                              "a bare accept, read and answer server", 1 / 0.8},
                             found.bestRatio());
  constexpr double page = 4096;
  failed |= bench::report({"memory of a silent connection", "a page of 4 KiB", 1.0},
                          memoryOfSilentConnection(gateway.port(), request) / page);
  return failed;
}
