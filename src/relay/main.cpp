// vantrell-relay: brings hosts and clients of remote control together. docs/relay.md is for those
// who run it.
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <vector>

#include "platform/files/files.h"
#include "platform/process/own_process.h"
#include "platform/queues/run_loop.h"
#include "relay/relay_server.h"

namespace vantrell::relay {
namespace {

constexpr std::string_view help =
    "vantrell-relay passes encrypted messages between Vantrell hosts and their clients.\n"
    "\n"
    "Usage: vantrell-relay [options]\n"
    "\n"
    "  --listen ADDRESS:PORT            where to listen (127.0.0.1:8443); [::]:443 for all "
    "addresses\n"
    "  --certificate FILE --key FILE    speak TLS with this certificate chain and key (PEM); "
    "SIGHUP\n"
    "                                   reads both again\n"
    "  --trust-proxy                    take addresses of clients from X-Forwarded-For; only "
    "behind a\n"
    "                                   proxy that sets it\n"
    "  --connections N                  open connections (20000)\n"
    "  --connections-per-address N      of one address (64)\n"
    "  --pairs N                        hosts, with their clients (10000)\n"
    "  --clients-per-pair N             clients of one host (16)\n"
    "  --memory MIB                     of messages that are under way (512)\n"
    "  --help, --version\n"
    "\n"
    "Hosts and clients connect to wss://ADDRESS/remote/connect. GET /healthz answers ok.\n";

struct Settings {
  RelayServer::Options server;
  std::string certificate;
  std::string key;
};

template <typename Number>
std::optional<Number> positive(std::string_view text) {
  Number number = 0;
  const auto end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number);
  if (read.ec != std::errc() || read.ptr != end || number == 0) return std::nullopt;
  return number;
}

/// "127.0.0.1:8443" or "[::]:443"; port 0 means any free one.
bool readListen(std::string_view text, RelayServer::Options& options) {
  const auto colon = text.rfind(':');
  if (colon == text.npos) return false;
  const auto port = text.substr(colon + 1);
  const auto number = positive<std::uint16_t>(port);
  if (!number && port != "0") return false;
  auto address = text.substr(0, colon);
  if (address.starts_with('[') && address.ends_with(']')) {
    address = address.substr(1, address.size() - 2);
  }
  options.address = address;
  options.port = number.value_or(0);
  return true;
}

/// The error is a sentence.
std::expected<Settings, std::string> readArguments(std::vector<std::string_view> arguments) {
  Settings settings;
  auto& limits = settings.server.limits;
  std::size_t mebibytes = limits.heldBytes >> 20;
  const std::map<std::string_view, std::size_t*> numbers{
      {"--connections", &limits.connections},
      {"--connections-per-address", &limits.addresses.connections},
      {"--pairs", &limits.pairs},
      {"--clients-per-pair", &limits.clientsPerPair},
      {"--memory", &mebibytes}};
  for (std::size_t at = 0; at < arguments.size(); ++at) {
    std::string_view name = arguments[at];
    if (name == "--trust-proxy") {
      settings.server.trustsProxy = true;
      continue;
    }
    const bool isKnown =
        name == "--listen" || name == "--certificate" || name == "--key" || numbers.contains(name);
    if (!isKnown) return std::unexpected(fmt::format("There is no option \"{}\".", name));
    if (++at == arguments.size()) return std::unexpected(fmt::format("{} needs a value.", name));
    const auto value = arguments[at];
    if (name == "--certificate") {
      settings.certificate = value;
    } else if (name == "--key") {
      settings.key = value;
    } else if (name == "--listen") {
      if (!readListen(value, settings.server)) {
        return std::unexpected(fmt::format(
            "--listen cannot be \"{}\"; give an address and a port, like 127.0.0.1:8443.", value));
      }
    } else {
      // Bytes of memory must be countable too.
      const auto number = positive<std::uint32_t>(value);
      if (!number) {
        return std::unexpected(fmt::format("{} cannot be \"{}\"; give a number.", name, value));
      }
      *numbers.at(name) = *number;
    }
  }
  limits.heldBytes = mebibytes << 20;
  if (settings.certificate.empty() != settings.key.empty()) {
    return std::unexpected("--certificate and --key belong together.");
  }
  return settings;
}

std::expected<std::optional<TlsIdentity>, std::string> readIdentity(const Settings& settings) {
  if (settings.certificate.empty()) return std::nullopt;
  const auto chain = files::read(settings.certificate);
  if (!chain) return std::unexpected(chain.error().description + ".");
  const auto key = files::read(settings.key);
  if (!key) return std::unexpected(key.error().description + ".");
  auto identity = TlsIdentity::read(*chain, *key);
  if (!identity) return std::unexpected(std::move(identity.error()));
  return std::move(*identity);
}

/// One descriptor a connection; what the system refuses shows when they run out.
void allowConnections(std::size_t connections) {
  constexpr rlim_t others = 64;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  const rlim_t needed = std::min<rlim_t>(connections + others, limit.rlim_max);
  if (needed <= limit.rlim_cur) return;
  limit.rlim_cur = needed;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

void report(const std::string& sentence) {
  fmt::print(stderr, "vantrell-relay: {}\n", sentence);
}

int serve(Settings settings) {
  auto identity = readIdentity(settings);
  if (!identity) {
    report(identity.error());
    return EXIT_FAILURE;
  }
  settings.server.identity = std::move(*identity);
  allowConnections(settings.server.limits.connections);

  // Never destroyed: the process ends with connections that may still be closing.
  auto& loop = *new RunLoop;
  auto& pool = *new BackgroundPool(1);
  const auto server = RelayServer::start(loop, pool, settings.server, report);
  if (!server) {
    report(server.error());
    return EXIT_FAILURE;
  }
  const auto stopWatch = loop.watchSignals({SIGTERM, SIGINT}, [&, isStopping = false](int) mutable {
    if (std::exchange(isStopping, true)) return loop.quit();
    (*server)->stop([&] { loop.quit(); });
  });
  const auto reloadWatch = loop.watchSignals({SIGHUP}, [&](int) {
    const auto again = readIdentity(settings);
    if (!again) return report(again.error() + " The relay goes on with the certificate it has.");
    if (*again) (*server)->setIdentity(**again);
  });
  const bool isIPv6 = settings.server.address.contains(':');
  fmt::print("vantrell-relay {} listens on {}{}{}:{}, {} TLS.\n", VANTRELL_VERSION,
             isIPv6 ? "[" : "", settings.server.address, isIPv6 ? "]" : "", (*server)->port(),
             settings.server.identity ? "with" : "without");
  std::fflush(stdout);
  loop.run();
  std::_Exit(EXIT_SUCCESS);
}

int run(const std::vector<std::string_view>& arguments) {
  if (const auto ready = prepareOwnProcess(); !ready) {
    report(ready.error());
    return EXIT_FAILURE;
  }
  for (const auto argument : arguments) {
    if (argument == "--help" || argument == "-h") {
      fmt::print("{}", help);
      return EXIT_SUCCESS;
    }
    if (argument == "--version") {
      fmt::print("vantrell-relay {}\n", VANTRELL_VERSION);
      return EXIT_SUCCESS;
    }
  }
  auto settings = readArguments(arguments);
  if (!settings) {
    report(settings.error() + " See vantrell-relay --help.");
    return 2;
  }
  return serve(std::move(*settings));
}

}  // namespace
}  // namespace vantrell::relay

int main(int count, char** arguments) {
  return vantrell::relay::run({arguments + 1, arguments + count});
}
