// What the engine calls in parts of the program that stand beside or above it. Each is one
// function, set once by the composition root, in one place that lists them all; a neutral port
// answers as if its part did not exist. Not a broadcast: the order of steps around a run is fixed,
// and these calls stand in it. Main queue.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>

#include "engine/runtime_desk.h"
#include "records/chat_thread.h"
#include "records/project_hook.h"
#include "runtimes/agent_error.h"
#include "runtimes/provider_connectors.h"
#include "runtimes/provider_usage.h"

namespace vantrell {

/// What the desk of the media generator works with.
struct ImagineMeans {
  /// The program's own data folder, which holds the library.
  std::string supportFolder;
  /// Copies files; unset: the main queue does.
  Executor* background = nullptr;
};

struct EnginePorts {
  using Key = ThreadExecutionKey;
  using Done = std::function<void()>;

  // Providers.

  std::function<const ProviderConnector&(AgentProvider)> connector;
  /// The provider of a turn, `attempted` left out; absent when none can take it.
  std::function<std::optional<AgentProvider>(const std::set<AgentProvider>& attempted, const Key&)>
      providerForNextTurn;
  /// What is known of the local model server, and whether a Tasklet webhook is stored.
  std::function<LocalRuntimeStatus()> localRuntimeStatus;
  std::function<bool()> isTaskletConfigured;
  /// Why that provider runs, for the run record.
  std::function<std::optional<std::string>(AgentProvider, const Key&)> routingReason;
  /// The provider to hand a task on to after an exhausted allowance; absent when nothing is left.
  std::function<std::optional<AgentProvider>(AgentProvider after,
                                             const std::set<AgentProvider>& attempted, const Key&)>
      nextAutomaticProvider;
  /// What the repository looks like, for a hand-off; empty when there is nothing to say. Replies on
  /// the main queue.
  std::function<void(std::string workspacePath, std::function<void(std::string)> reply)>
      repositoryState;
  std::function<void(ProviderUsage)> usageReported;
  std::function<void(AgentProvider)> allowanceExhausted;
  /// A client of this provider could not be made or started: a usage reset that waited for it ends.
  std::function<void(AgentProvider)> startFailed;

  /// What the desk of the runtimes' programs works with.
  RuntimeMeans runtimes;

  // The project.

  std::function<void(const Key&, std::string label, WorkspaceCheckpointKind, Done)>
      captureCheckpoint;
  std::function<void(ProjectHookEvent, const Key&, Done)> runProjectHooks;
  /// The block that every provider is told about the project; empty when there is none.
  std::function<std::string(const Key&)> projectContextPrompt;
  std::function<void()> refreshGitSnapshot;
  /// Loads what is known about the selected workspace's project.
  std::function<void()> loadProjectContext;
  /// Asks the user for a folder; the reply comes only when one was chosen.
  std::function<void(std::string_view title, std::string_view prompt,
                     std::function<void(const std::string& path)> reply)>
      chooseFolder;

  // Around the task.

  /// Asks for the right to notify, once.
  std::function<void()> prepareNotifications;
  /// Whether the text asks for the state of the session, which the program answers itself.
  std::function<bool(std::string_view text)> isSessionStatusQuestion;
  std::function<void(std::string text, const Key&)> respondToSessionStatus;
  std::function<void(const Key&)> runNextQueuedPrompt;
  std::function<void(std::string_view kind, std::string_view message, const Key&)>
      sendRemoteTaskEvent;
  /// Sends paired clients the state anew, when remote control is on.
  std::function<void()> updateRemoteSnapshot;

  // The media generator.

  /// What its desk works with.
  ImagineMeans imagine;
  /// "imagine_completed" or "imagine_attention".
  std::function<void(std::string_view kind, std::string_view message)> sendRemoteImagineEvent;

  // Start-up, in the order in which AppModel calls them.

  std::function<void()> makeServers;
  std::function<void()> loadTasklet;
  std::function<void()> loadOrchestration;
  std::function<void()> configureRemoteHost;
  /// What there is to ask beside the runtimes' programs (a local server, the session controls).
  std::function<void()> refreshRuntimes;
  std::function<void()> configureExternalSessionImport;
  std::function<void()> configureAutomationScheduler;
  std::function<void()> configureExecutionMonitor;
  std::function<void()> refreshFleet;
  std::function<void()> startPersonalGateway;
};

}  // namespace vantrell
