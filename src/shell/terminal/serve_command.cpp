// `vantrell serve`: owns the state without a terminal, for the gateway and for the commands of
// other processes.
#include <charconv>
#include <csignal>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "automations/automations.h"
#include "discovery/session_import.h"
#include "engine/core/execution_table.h"
#include "fleet/fleet_module.h"
#include "gateway/gateway_module.h"
#include "platform/files/files.h"
#include "platform/process/program_runner.h"
#include "platform/process/service_manager.h"
#include "platform/terminal/terminal.h"
#include "platform/text/text.h"
#include "remote/host/remote_access.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "updates/update_module.h"

namespace vantrell::shell {

namespace {

std::string gatewayLine(const PersonalGateway& gateway) {
  switch (gateway.state().phase) {
    case GatewayServer::Phase::listening: return "gateway: " + gateway.baseURL();
    case GatewayServer::Phase::starting: return "gateway: starting";
    default: break;
  }
  return gateway.lastError() ? "gateway: " + *gateway.lastError() : "gateway: off";
}

std::string remoteLine(const RemoteAccess& remote, bool isEnabled) {
  const auto& state = remote.state();
  if (!isEnabled) return "remote: off";
  std::string line = "remote: " + state.host.label();
  if (state.host.phase == RemoteHostState::Phase::listening) {
    line = fmt::format("remote: {}:{}", remote.remoteAdvertisedHost(), state.host.port);
  }
  if (!remote.relayURL()) return line + ", in the same network only: no relay is set";
  if (state.relay.phase == RemoteRelayState::Phase::connected) return line + ", relay connected";
  return state.relay.message.empty() ? line : line + ", relay: " + state.relay.message;
}

/// Says what listens where, whenever that changes.
class Announcements {
 public:
  Announcements(CommandContext& context, const GatewayModule& gateway, const RemoteAccess& remote)
      : context_(context), gateway_(gateway), remote_(remote) {
    observation_ = context.model().changes().observe([this](const ChangeBatch& batch) {
      if (batch.has(topics::gateway) || batch.has(topics::remoteAccess)) tell();
      if (batch.has(topics::error)) tellError();
    });
    context.console.complain(fmt::format("commands of other terminals: process {}", ::getpid()));
    tell();
  }

 private:
  /// What has no caller to answer, such as a host that refuses an automation.
  void tellError() {
    const auto& error = context_.model().executions().errorMessage();
    if (error) context_.console.complain(*error);
  }
  void tell() {
    tell(gatewayLine(gateway_.gateway), toldOfGateway_);
    tell(remoteLine(remote_, context_.model().settings().isRemoteHostEnabled()), toldOfRemote_);
  }
  void tell(std::string line, std::string& told) {
    if (line == told) return;
    context_.console.complain(line);
    told = std::move(line);
  }

  CommandContext& context_;
  const GatewayModule& gateway_;
  const RemoteAccess& remote_;
  std::string toldOfGateway_, toldOfRemote_;
  Changes::Observation observation_;
};

/// Tells the process that has started this one that everything listens.
void tellReady(int descriptor) {
  notifyServiceManager("READY=1");
  if (descriptor < 0) return;
  static_cast<void>(::write(descriptor, "ready\n", 6));
  if (descriptor > STDERR_FILENO) ::close(descriptor);
}

constexpr std::string_view fleetName = "--fleet";

void serveUntilStopped(CommandContext& context, int ready) {
  terminal::leaveOwn();  // it may go to the background, and other commands read that terminal
  context.open({.refreshesRuntimes = true}, [&](VantrellApp& app) {
    if (const auto listening = context.acceptCommands(); !listening) {
      return context.fail(listening.error());
    }
    GatewayModule& gateway = app.gateway();
    if (context.arguments.has(fleetName)) {
      gateway.gateway.serveFleet([&app] { return app.fleet().thisMachine.statusForFleets(); });
    }
    gateway.gateway.start();
    app.remote().configureRemoteHost();
    app.sessionImport().configureExternalSessionImport();
    context.keep(std::make_shared<Announcements>(context, gateway, app.remote()));
    context.keep(context.caller.watchSignals([&context](int) {
      notifyServiceManager("STOPPING=1");
      context.endOthers();
      context.finish(exitStatus::completed);
    }));
    app.updates().relaunch = [&context] {
      context.newVersion = CommandContext::NewVersion::goesOn;
      context.endOthers();
      context.finish(exitStatus::completed);
    };
    app.automations().configureAutomationScheduler();
    tellReady(ready);
  });
}

// ---- as a service of the user -------------------------------------------------------------------

/// A word of a unit file: quoted, with what systemd would expand doubled.
std::string unitWord(std::string_view word) {
  std::string quoted = "\"";
  for (const char each : word) {
    if (each == '"' || each == '\\') quoted += '\\';
    if (each == '%' || each == '$') quoted += each;
    quoted += each;
  }
  return quoted + "\"";
}

/// Agents need the network, the user's files and programs, and sandboxes of their own, which
/// namespaces and most system calls make; what is taken away here none of them needs.
std::string unitFile(const std::string& program) {
  return fmt::format(
      "[Unit]\n"
      "Description=Vantrell: agents, gateway and commands of this user\n"
      "\n"
      "[Service]\n"
      "Type=notify\n"
      "ExecStart={} serve\n"
      "Restart=on-failure\n"
      "KillMode=mixed\n"
      "TimeoutStopSec=20\n"
      "NoNewPrivileges=yes\n"
      "LockPersonality=yes\n"
      "RestrictRealtime=yes\n"
      "RestrictSUIDSGID=yes\n"
      "\n"
      "[Install]\n"
      "WantedBy=default.target\n",
      unitWord(program));
}

std::string unitPath() {
  return files::standardized("systemd/user/vantrell.service", files::configFolder());
}

/// Runs systemctl, one call after the other, as far as they succeed.
class SystemctlCalls : public std::enable_shared_from_this<SystemctlCalls> {
 public:
  SystemctlCalls(CommandContext& context, std::vector<std::vector<std::string>> calls)
      : context_(context), calls_(std::move(calls)) {}

  /// `failure`: empty when all went well.
  void run(std::function<void(std::string failure)> then) {
    if (next_ == calls_.size()) return then("");
    const auto& words = calls_[next_++];
    runner_->run({.options =
                      [words, environment = context_.caller.environment] {
                        ProcessOptions options;
                        options.executable = "/usr/bin/systemctl";
                        options.arguments = words;
                        options.arguments.insert(options.arguments.begin(), "--user");
                        options.environment = environment;
                        options.mergeErrorIntoOutput = true;
                        return options;
                      },
                  .limit = std::chrono::seconds(30),
                  .input = std::nullopt},
                 [self = shared_from_this(), then](const ProgramRunner::Outcome& outcome) {
                   if (outcome.status == 0) return self->run(then);
                   then(std::string(text::trimmed(outcome.output)));
                 });
  }

 private:
  CommandContext& context_;
  const std::shared_ptr<ProgramRunner> runner_ =
      std::make_shared<ProgramRunner>(context_.main, context_.pool());
  const std::vector<std::vector<std::string>> calls_;
  std::size_t next_ = 0;
};

void install(CommandContext& context) {
  const auto path = unitPath();
  const auto program = terminal::programFolder() + "/vantrell";
  const auto made = files::createFolders(files::parent(path));
  const auto written = made ? files::writeAtomically(path, unitFile(program), 0644) : made;
  if (!written) return context.fail(written.error().description);
  const auto systemctl = std::make_shared<SystemctlCalls>(
      context, std::vector<std::vector<std::string>>{{"daemon-reload"},
                                                     {"enable", "--now", "vantrell.service"}});
  context.keep(systemctl);
  systemctl->run([&context, path](const std::string& failure) {
    if (!failure.empty()) {
      return context.fail(fmt::format(
          "{}\n{} was written. To start it: systemctl --user daemon-reload && systemctl "
          "--user enable --now vantrell.service",
          failure, path));
    }
    context.console.write(
        fmt::format("Vantrell serves from now on, and with each of your sessions: {}\n"
                    "To let it go on after you log out: loginctl enable-linger\n",
                    path));
    context.finish(exitStatus::completed);
  });
}

void uninstall(CommandContext& context) {
  const auto path = unitPath();
  if (!files::exists(path)) return context.fail("The service is not installed.");
  const auto systemctl = std::make_shared<SystemctlCalls>(
      context, std::vector<std::vector<std::string>>{{"disable", "--now", "vantrell.service"}});
  context.keep(systemctl);
  systemctl->run([&context, path](const std::string& failure) {
    if (!failure.empty()) context.complain(failure);
    if (::unlink(path.c_str()) != 0) {
      return context.fail(fmt::format("{} could not be removed.", path));
    }
    context.console.write(fmt::format("{} is removed.\n", path));
    context.finish(failure.empty() ? exitStatus::completed : exitStatus::failed);
  });
}

// ---- the command --------------------------------------------------------------------------------

constexpr std::string_view installName = "--install", uninstallName = "--uninstall",
                           readyName = "--ready-fd";

void serve(CommandContext& context) {
  if (context.arguments.has(installName)) return install(context);
  if (context.arguments.has(uninstallName)) return uninstall(context);
  const auto ready = context.arguments.count(readyName);
  if (ready && ::fcntl(static_cast<int>(*ready), F_SETFD, FD_CLOEXEC) != 0) {
    return context.misused(fmt::format("{} names no open descriptor.", readyName));
  }
  serveUntilStopped(context, ready ? static_cast<int>(*ready) : -1);
}

constexpr CommandOption options[] = {
    {readyName, "N", "write a line to this descriptor when everything listens", {}, true},
    {fleetName, "", "the gateway also takes jobs from the fleet of another machine"},
    {installName, "", "start it with each of your sessions, by systemd, and now"},
    {uninstallName, "", "end it, and start it no more"},
};

constexpr Command commands[] = {
    {.name = "serve",
     .summary = "own the state without a terminal: for the gateway and other terminals",
     .options = options,
     .begin = serve,
     .introduction =
         "Owns the state until it is stopped by Ctrl-C or SIGTERM. Every other vantrell command\n"
         "then works in it, as if it ran alone: any number of them at a time. The gateway listens\n"
         "if it is on (vantrell gateway), and automations run when they are due (vantrell\n"
         "automations). What listens is said on the error output.",
     .staysHere = true},
};

}  // namespace

std::span<const Command> serveCommands() {
  return commands;
}

}  // namespace vantrell::shell
