// `vantrell remote`: whether other devices may control this computer, and how they are paired.
#include <fmt/format.h>

#include "engine/core/settings.h"
#include "platform/terminal/qr_code.h"
#include "remote/host/remote_access.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

/// Takes the state and ends with what `work` returns.
void withRemote(CommandContext& context, const std::function<Outcome(RemoteAccess&)>& work) {
  context.open({}, [&](VantrellApp& app) { context.finish(work(app.remote())); });
}

/// The same once the pairing key is there.
void withKey(CommandContext& context, std::function<Outcome(RemoteAccess&)> work) {
  context.open({}, [&](VantrellApp& app) {
    RemoteAccess& remote = app.remote();
    remote.whenKeyIsKnown(context.whileAlive([&context, &remote, work = std::move(work)] {
      if (!remote.keyProblem().empty()) context.complain(remote.keyProblem());
      context.finish(work(remote));
    }));
  });
}

// The words for RemoteRelayState::Phase.
constexpr std::string_view relayPhases[] = {"off", "connecting", "connected", "reconnecting",
                                            "failed"};

std::string relayWords(const RemoteAccess& remote) {
  if (!remote.relayURL()) return "none is set: works in the same network only";
  const auto& [phase, message] = remote.state().relay;
  const auto word =
      remote.isServing() ? relayPhases[static_cast<std::size_t>(phase)] : "not in use";
  const auto text = fmt::format("{}, {}", remote.relayURL()->hostAndPort(), word);
  return message.empty() ? text : fmt::format("{}: {}", text, onOneLine(message));
}

Outcome showState(CommandContext& context, bool isEnabled, const RemoteAccess& remote) {
  const auto& state = remote.state();
  const std::string host = !isEnabled           ? "off"
                           : remote.isServing() ? "on, " + state.host.label()
                                                : "on; it listens while \"vantrell serve\" runs";
  const auto address =
      fmt::format("{}, port {}", remote.remoteAdvertisedHost(), RemoteHostServer::defaultPort);
  const JsonObject all{{"enabled", isEnabled},
                       {"serving", remote.isServing()},
                       {"state", state.host.label()},
                       {"address", remote.remoteAdvertisedHost()},
                       {"port", static_cast<std::int64_t>(RemoteHostServer::defaultPort)},
                       {"relay", remote.relayURL() ? Json(remote.relayURL()->text()) : Json()},
                       {"relayState", relayPhases[static_cast<std::size_t>(state.relay.phase)]},
                       {"clients", state.clientCount},
                       {"code", orNull(state.pairingCode)}};
  return context.report(
      all, context.console.asTyped(fmt::format(
               "Remote    {}\nAddress   {}\nRelay     {}\nClients   {}\n{}", host, address,
               relayWords(remote), state.clientCount,
               state.pairingCode ? fmt::format("Code      {}\n", *state.pairingCode) : "")));
}

Outcome state(CommandContext& context, const RemoteAccess& remote) {
  return showState(context, context.model().settings().isRemoteHostEnabled(), remote);
}

void showRemote(CommandContext& context) {
  withRemote(context, [&](RemoteAccess& remote) { return state(context, remote); });
}

template <bool isOn>
void turn(CommandContext& context) {
  withRemote(context, [&](RemoteAccess& remote) -> Outcome {
    const auto done = remote.setRemoteEnabled(isOn);
    return done ? state(context, remote) : context.refused(done.error());
  });
}

constexpr CommandOption qrOption{"--qr", "", "as a QR code as well"};
constexpr CommandOption linkOptions[] = {qrOption, jsonOption};

Outcome showLink(CommandContext& context, const RemoteAccess& remote) {
  const auto link = *remote.remotePairingURL();
  const auto code =
      context.arguments.has(qrOption.name) ? QrCode::encode(link) : std::optional<QrCode>();
  context.complain("Who has this link can run programs here. Keep it like a password.");
  std::string text = link + "\n";
  if (code) text += "\n" + code->terminalText(context.style().isLive());
  return context.report(JsonObject{{"link", link}}, text);
}

void link(CommandContext& context) {
  withKey(context, [&context](RemoteAccess& remote) { return showLink(context, remote); });
}

void code(CommandContext& context) {
  withRemote(context, [&](RemoteAccess& remote) -> Outcome {
    const auto& issued = remote.state().pairingCode;
    if (issued) return context.report(JsonObject{{"code", *issued}}, *issued + "\n");
    context.complain(!remote.relayURL() ? "No relay is set, and only a relay issues codes. To pair "
                                          "by a link: vantrell remote link"
                     : !remote.isServing()
                         ? "Codes are issued while \"vantrell serve\" runs with remote control on."
                         : "The relay has issued no code: " + relayWords(remote));
    return exitStatus::failed;
  });
}

void rotate(CommandContext& context) {
  context.open({}, [&](VantrellApp& app) {
    RemoteAccess& remote = app.remote();
    context.confirm("Change the key? Every client loses its access and must be paired again.",
                    [&context, &remote] {
                      remote.rotateRemoteAccessKey(context.whileAlive([&context, &remote] {
                        if (!remote.keyProblem().empty()) context.complain(remote.keyProblem());
                        context.finish(context.tell(
                            "The key is changed. For the new link: vantrell remote link\n"));
                      }));
                    });
  });
}

void refreshAddress(CommandContext& context) {
  withRemote(context, [&](RemoteAccess& remote) {
    remote.refreshRemoteRoutes();
    return state(context, remote);
  });
}

constexpr Command remoteSubcommands[] = {
    {"on", "", "let paired devices control this computer", onlyJson, turn<true>},
    {"off", "", "end that; the pairings stay", onlyJson, turn<false>},
    {"link", "", "the pairing link, which holds the access key", linkOptions, link},
    {"code", "", "the short code that stands for the link at the relay", onlyJson, code},
    {"rotate", "", "change the access key, which ends every pairing", onlyYes, rotate},
    {"address", "", "look again for the address that links hold", onlyJson, refreshAddress},
};

constexpr Command commands[] = {
    {"remote", "", "let other devices of yours control this computer", onlyJson, showRemote,
     "Paired devices see the tasks here and give prompts and answers (vantrell connect). They\n"
     "reach this computer while \"vantrell serve\" runs, in the same network or through a relay.\n"
     "docs/remote.md tells what is protected against whom.",
     "Examples:\n"
     "  vantrell remote on\n"
     "  vantrell remote link --qr\n"
     "  vantrell settings set remote-relay wss://relay.example/remote/connect",
     remoteSubcommands},
};

}  // namespace

std::span<const Command> remoteCommands() {
  return commands;
}

}  // namespace vantrell::shell
