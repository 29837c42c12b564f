// What the engine calls in parts of the program that stand beside or above it. Each is one
// function, set once by the composition root, in one place that lists them all; a neutral port
// answers as if its part did not exist. Not a broadcast: the order of steps around a run is fixed,
// and these calls stand in it. Main queue.
#pragma once

#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "engine/core/task_safety_means.h"
#include "engine/providers/installed_runtimes.h"
#include "records/values/chat_thread.h"
#include "records/values/git_workspace_snapshot.h"
#include "records/values/project_context.h"
#include "records/values/project_hook.h"
#include "runtimes/catalog/provider_connectors.h"
#include "runtimes/wire/agent_error.h"

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
  /// What is known of the local model server, and whether a Tasklet webhook is stored.
  std::function<LocalRuntimeStatus()> localRuntimeStatus;
  std::function<bool()> isTaskletConfigured;
  /// Starts a detection of the local model server.
  std::function<void()> refreshLocalRuntime;
  /// Stores the webhook as a secret, or forgets it where the text is empty. Replies on the main
  /// queue.
  std::function<void(const std::string& text, std::function<void(bool isSaved)> reply)>
      saveTaskletWebhook;
  /// Whether the above is known for the provider, and the way to find it out: done on the main
  /// queue, and known then.
  std::function<bool(AgentProvider)> isSetupKnown;
  std::function<void(AgentProvider, Done)> findOutSetup;
  /// What the repository looks like, for a hand-off; empty when there is nothing to say. Replies on
  /// the main queue.
  std::function<void(std::string workspacePath, std::function<void(std::string)> reply)>
      repositoryState;
  /// What the desk of the runtimes' programs works with.
  RuntimeMeans runtimes;
  /// And that of checkpoints and worktrees.
  TaskSafetyMeans taskSafety;

  // The project.

  std::function<void(const Key&, std::string label, WorkspaceCheckpointKind, Done)>
      captureCheckpoint;
  /// Runs one hook in the folder. Replies on the main queue with what the conversation shows of it.
  std::function<void(const ProjectHook&, const std::string& folder,
                     std::function<void(std::string text)> reply)>
      runProjectHook;
  /// Reads the files of the project's folder that guide agents. Replies on the main queue.
  std::function<void(std::string folder,
                     std::function<void(std::vector<ProjectContextSource>)> reply)>
      discoverContextSources;
  /// Reads the Git picture of the folder. Replies on the main queue, unless it is stopped.
  std::function<void(const std::string& folder, std::stop_token stop,
                     std::function<void(GitWorkspaceSnapshot)> reply)>
      gitSnapshot;
  /// Asks the user for a folder; the reply comes only when one was chosen.
  std::function<void(std::string_view title, std::string_view prompt,
                     std::function<void(const std::string& path)> reply)>
      chooseFolder;

  // Around the task.

  /// Asks for the right to notify, once.
  std::function<void()> prepareNotifications;
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
  std::function<void()> configureExternalSessionImport;
  std::function<void()> configureAutomationScheduler;
  std::function<void()> refreshFleet;
  std::function<void()> startPersonalGateway;
};

}  // namespace vantrell
