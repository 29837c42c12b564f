// `vantrell fleet`: the hosts that can run work, and the tasks that are handed to them.
#include <fmt/format.h>

#include "engine/core/workspace_tree.h"
#include "fleet/fleet_module.h"
#include "shell/terminal/command_context.h"
#include "shell/terminal/command_groups.h"
#include "shell/terminal/task_lookup.h"
#include "shell/terminal/task_words.h"
#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {

namespace {

JsonObject asJson(const FleetHost& host) {
  Json::Array capabilities, paths;
  for (const auto& each : host.capabilities) capabilities.push_back(each);
  for (const auto& each : host.workspacePaths) paths.push_back(each);
  return {
      {"id", host.isThisMachine() ? Json() : Json(host.id.text())},
      {"name", host.name},
      {"platform", rawText(host.platform)},
      {"status", rawText(host.status)},
      {"endpoint", orNull(host.endpoint)},
      {"capabilities", std::move(capabilities)},
      {"workspacePaths", std::move(paths)},
      {"lastSeenAt", host.lastSeenAt ? Json(host.lastSeenAt->secondsSinceReference()) : Json()}};
}

std::string_view words(FleetHostStatus status) {
  return status == FleetHostStatus::needsAttention ? "needs attention" : rawText(status);
}

TableCell::Look lookOf(FleetHostStatus status) {
  switch (status) {
    case FleetHostStatus::needsAttention: return look::red;
    case FleetHostStatus::busy: return look::yellow;
    case FleetHostStatus::offline: return look::dim;
    case FleetHostStatus::online: break;
  }
  return nullptr;
}

Outcome showHosts(CommandContext& context, const FleetModule& module) {
  const auto cells = [&](const FleetHost& host) -> std::vector<TableCell> {
    std::string able;
    for (const auto& each : host.capabilities) able += (able.empty() ? "" : ", ") + each;
    const bool isHere = host.isThisMachine();
    return {isHere ? TableCell{"here"} : idCell(host.id),
            {host.name},
            {std::string(rawText(host.platform))},
            {std::string(words(host.status)), lookOf(host.status)},
            {isHere            ? "now"
             : host.lastSeenAt ? ago(*host.lastSeenAt, context.main.now())
                               : "never",
             look::dim},
            {able}};
  };
  return context.showList(
      module.thisMachine.fleetOverview(*module.fleet),
      TextTable({{"ID"}, {"NAME", 12}, {"PLATFORM"}, {"STATUS"}, {"SEEN"}, {"CAN", 20}}),
      [](const FleetHost& host) { return asJson(host); }, cells, "");
}

void listHosts(CommandContext& context) {
  context.open({}, [&](VantrellApp& app) { context.finish(showHosts(context, app.fleet())); });
}

void refreshHosts(CommandContext& context) {
  context.open({}, [&](VantrellApp& app) {
    FleetModule& module = app.fleet();
    module.fleet->refreshFleet();
    const auto look = [&context, &module] {
      if (!module.fleet->isChecking()) context.finish(showHosts(context, module));
    };
    context.keep(std::make_shared<Changes::Observation>(
        app.model().changes().observe(context.whileAlive([look](const ChangeBatch& batch) {
          if (batch.has(topics::fleet)) look();
        }))));
    look();
  });
}

constexpr CommandOption platformOption{"--platform", "PLATFORM", "what it runs on (default: linux)",
                                       choicesOf<FleetPlatform>};
constexpr CommandOption keyOption{"--key", "", "ask for the jobs key of an HTTP host as well"};

void addHost(CommandContext& context) {
  const auto add = [&context](const std::string& endpoint, std::optional<std::string> key) {
    context.open({}, [&context, endpoint, key = std::move(key)](VantrellApp& app) mutable {
      const auto platform = context.arguments.choice<FleetPlatform>(platformOption.name)
                                .value_or(FleetPlatform::linux_);
      app.fleet().fleet->addFleetHost(
          context.word(0), platform, endpoint, std::move(key),
          context.whileAlive([&context](const Result<>& added) {
            context.finish(context.after(added, [&] {
              context.tell(
                  fmt::format("{} is in the fleet. To see how it is: vantrell fleet "
                              "refresh\n",
                              onOneLine(context.word(0))));
            }));
          }));
    });
  };
  const auto askForKey = [&context, add](const std::string& endpoint) {
    if (!context.arguments.has(keyOption.name)) return add(endpoint, std::nullopt);
    context.askHidden("Jobs key: ", [&context, add, endpoint](const auto& key) {
      if (!key) return context.misused("A key is missing. Nothing was added.");
      add(endpoint, *key);
    });
  };
  if (context.arguments.words.size() > 1) return askForKey(context.word(1));
  context.askHidden("Pairing link or HTTPS endpoint: ", [&context, askForKey](const auto& line) {
    if (!line) return context.misused("An endpoint is missing. Nothing was added.");
    askForKey(*line);
  });
}

/// Opens the state and goes on with the host that the first word names.
void withHost(CommandContext& context,
              const std::function<void(VantrellApp&, const FleetHost&)>& work) {
  context.open({}, [&](VantrellApp& app) {
    const auto host =
        findByID(app.fleet().fleet->fleetHosts(), context.word(0), "fleet host", "fleet");
    if (!host) return context.misused(host.error());
    work(app, **host);
  });
}

void removeHost(CommandContext& context) {
  withHost(context, [&](VantrellApp& app, const FleetHost& host) {
    const std::string name = onOneLine(host.name);
    app.fleet().fleet->removeFleetHost(host.id);
    context.finish(context.tell(fmt::format("{} is no longer in the fleet.\n", name)));
  });
}

void dispatch(CommandContext& context) {
  withHost(context, [&](VantrellApp& app, const FleetHost& host) {
    const auto& workspaces = app.model().tree().workspaces();
    const auto project = context.projectHere(workspaces);
    if (!project) return context.misused(project.error());
    const auto& [fleet, here] = app.fleet();
    fleet->refreshFleet();
    fleet->dispatchTask(
        host.id, here.task(context.word(1), workspaceOf(workspaces, *project).path),
        context.whileAlive([&context, name = onOneLine(host.name)](const Result<>& taken) {
          context.finish(context.after(
              taken, [&] { context.tell(fmt::format("{} has taken the task.\n", name)); }));
        }));
  });
}

constexpr CommandOption addOptions[] = {platformOption, keyOption};
constexpr CommandOption dispatchOptions[] = {ofProjectOption};
constexpr Command fleetSubcommands[] = {
    {"add", "NAME [ENDPOINT]", "add a host, or change the one at this HTTP endpoint", addOptions,
     addHost,
     "ENDPOINT is a pairing link or an HTTP address. A link holds a key, so it is better left out\n"
     "here, where other programs see it: it is asked for then."},
    {"remove", "ID", "remove one, with its secret", noOptions, removeHost},
    {"refresh", "", "ask every host how it is, and list them", onlyJson, refreshHosts},
    {"dispatch", "ID PROMPT", "hand a task to a host", dispatchOptions, dispatch,
     "The host's project with the same folder as the project here takes it, else its first."},
};

constexpr Command commands[] = {
    {"fleet", "", "the hosts that can run work, and what they were when last seen", onlyJson,
     listHosts,
     "Hosts are paired computers (vantrell remote) and machines that answer over HTTP, such as\n"
     "one that runs \"vantrell serve --fleet\". Their links and keys are kept as secrets.",
     "Examples:\n"
     "  vantrell fleet add studio\n"
     "  vantrell fleet add build https://build.example:43767 --key\n"
     "  vantrell fleet dispatch 3F2A \"Run the tests and mend what fails\"",
     fleetSubcommands},
};

}  // namespace

std::span<const Command> fleetCommands() {
  return commands;
}

}  // namespace vantrell::shell
