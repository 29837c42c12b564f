// What the relay costs: its throughput from a host to a client, against a loop that copies the same
// bytes from one connection to another; and its memory with 2,000 idle pairs.
#include <arpa/inet.h>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <netinet/in.h>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "platform/files/descriptor.h"
#include "platform/terminal/terminal.h"
#include "process_memory.h"
#include "ratio.h"

using namespace vantrell;

namespace {

constexpr int pairs = 2'000;
constexpr double memoryOfPair = 64 << 10;  // bytes, for its two connections
constexpr double throughputLimit = 4;
constexpr std::size_t messageSize = 1 << 20;
constexpr int messagesInRound = 48;
constexpr int rounds = 12;

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::abort();
}

sockaddr_in loopback(int port) {
  return {.sin_family = AF_INET,
          .sin_port = htons(static_cast<std::uint16_t>(port)),
          .sin_addr = {htonl(INADDR_LOOPBACK)}};
}

Descriptor connected(int port) {
  Descriptor made(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const auto address = loopback(port);
  if (::connect(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    fail("connect");
  }
  return made;
}

void writeAll(int to, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto count = ::send(to, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) fail("send");
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

void readBytes(int from, std::size_t bytes) {
  static thread_local std::array<char, 1 << 18> piece;
  while (bytes > 0) {
    const auto count = ::recv(from, piece.data(), std::min(bytes, piece.size()), 0);
    if (count <= 0) fail("recv");
    bytes -= static_cast<std::size_t>(count);
  }
}

/// The text up to and with that; what follows stays unread.
std::string readTo(int from, std::string_view end) {
  std::string text;
  char next = 0;
  while (!text.ends_with(end)) {
    if (::recv(from, &next, 1, 0) != 1) fail("recv");
    text += next;
  }
  return text;
}

/// Of a client of the protocol: masked, with a mask of zeros, which the relay applies all the same.
std::string frame(int kind, std::string_view content) {
  std::string made(1, static_cast<char>(0x80 | kind));
  if (content.size() < 126) {
    made += static_cast<char>(0x80 | content.size());
  } else {
    made += static_cast<char>(0x80 | 127);
    for (int shift = 56; shift >= 0; shift -= 8) {
      made += static_cast<char>(content.size() >> shift & 0xff);
    }
  }
  return made.append(4, '\0').append(content);
}

/// One end of a pair, greeted by the relay.
Descriptor joined(int port, std::string_view role, int pair, int address) {
  auto made = connected(port);
  writeAll(made.get(),
           fmt::format("GET /remote/connect HTTP/1.1\r\nHost: relay\r\nUpgrade: websocket\r\n"
                       "Connection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                       "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                       "X-Forwarded-For: 10.0.{}.{}\r\n\r\n",
                       address / 250, address % 250 + 1));
  if (!readTo(made.get(), "\r\n\r\n").contains(" 101 ")) fail("the relay refuses");
  writeAll(made.get(), frame(1, fmt::format(R"({{"version":1,"role":"{}","pairID":"pair-{:020}"}})",
                                            role, pair)));
  readTo(made.get(), "}");  // ready
  return made;
}

struct Relay {
  Relay() {
    int ends[2];
    if (::pipe(ends) != 0) fail("pipe");
    const std::string program = terminal::programFolder() + "/vantrell-relay";
    std::vector<std::string> words{program, "--listen", "127.0.0.1:0", "--trust-proxy"};
    std::vector<char*> arguments;
    for (auto& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    if (::posix_spawn(&process, program.c_str(), &actions, nullptr, arguments.data(), environ) !=
        0) {
      fail("vantrell-relay");
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    char text[200]{};
    if (::read(ends[0], text, sizeof text - 1) <= 0) fail("its first line");
    ::close(ends[0]);
    const std::string line(text);
    port = std::atoi(line.c_str() + line.find("127.0.0.1:") + 10);
  }
  ~Relay() {
    ::kill(process, SIGTERM);
    ::waitpid(process, nullptr, 0);
  }
  pid_t process = 0;
  int port = 0;
};

/// Sends the messages there and takes as many bytes here, at once.
bench::Clock::duration passed(int to, int from, const std::string& message, std::size_t received) {
  return bench::timed([&] {
    std::thread sending([&] {
      for (int i = 0; i < messagesInRound; ++i) writeAll(to, message);
    });
    readBytes(from, received * messagesInRound);
    sending.join();
  });
}

/// Two connections, between which a process of its own copies.
struct Copying {
  Copying() {
    const Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    auto address = loopback(0);
    socklen_t size = sizeof address;
    auto* const raw = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener.get(), raw, size) != 0 || ::listen(listener.get(), 2) != 0) fail("listen");
    ::getsockname(listener.get(), raw, &size);
    to = connected(ntohs(address.sin_port));
    from = connected(ntohs(address.sin_port));
    const Descriptor in(::accept(listener.get(), nullptr, nullptr));
    const Descriptor out(::accept(listener.get(), nullptr, nullptr));
    process = ::fork();
    if (process != 0) return;
    to.reset();
    from.reset();
    static std::array<char, 1 << 16> piece;
    for (;;) {
      const auto count = ::recv(in.get(), piece.data(), piece.size(), 0);
      if (count <= 0) ::_exit(0);
      writeAll(out.get(), {piece.data(), static_cast<std::size_t>(count)});
    }
  }
  ~Copying() {
    to.reset();
    ::waitpid(process, nullptr, 0);
  }
  Descriptor to, from;
  pid_t process = 0;
};

}  // namespace

int main() {
  rlimit descriptors{};
  ::getrlimit(RLIMIT_NOFILE, &descriptors);
  descriptors.rlim_cur = descriptors.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &descriptors);
  const Copying copying;
  const Relay relay;

  const auto client = joined(relay.port, "client", 0, 0);
  const auto host = joined(relay.port, "host", 0, 0);
  readTo(host.get(), "}");    // peer_count
  readTo(client.get(), "}");  // host_online
  const std::string content(messageSize, 'x');
  const auto message = frame(2, content);
  constexpr std::size_t head = 10;  // of a frame of that size that is not masked
  const auto found = bench::compare(
      rounds, [&] { return passed(host.get(), client.get(), message, head + messageSize); },
      [&] { return passed(copying.to.get(), copying.from.get(), message, message.size()); });
  const double seconds = std::chrono::duration<double>(found.ours).count();
  fmt::print("{:.0f} MiB/s through the relay\n", messagesInRound / seconds);

  std::vector<Descriptor> ends;
  const double before = bench::memory("VmRSS", relay.process);
  for (int pair = 1; pair <= pairs; ++pair) {
    ends.push_back(joined(relay.port, "host", pair, pair));
    ends.push_back(joined(relay.port, "client", pair, pair));
    readTo(ends[ends.size() - 2].get(), "}");  // peer_count
  }
  const double each = (bench::memory("VmRSS", relay.process) - before) / pairs;
  fmt::print("{:.1f} KiB for each of {} idle pairs\n", each / 1024, pairs);
  return bench::report(
             {"1 MiB messages through the relay", "a loop that copies them", throughputLimit},
             found) |
         bench::report({"the memory of an idle pair", "64 KiB", 1}, each / memoryOfPair);
}
