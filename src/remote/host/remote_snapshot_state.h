// What a snapshot says besides the projects and their conversations: read from the engine's state,
// with the labels that all front ends show. Main queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "records/values/chat_thread.h"
#include "remote/protocol/remote_snapshot.h"

namespace vantrell {

class ExecutionTable;
class ImagineController;
class MainQueue;
class ProjectContextService;
class Router;
class Selection;
class SessionControls;
class Settings;
class UsageTracker;
class WorkspaceTree;
struct PermissionRequest;
struct ProjectContextProfile;

/// Everything that a snapshot is read from; all of it must outlive the reader.
struct RemoteSnapshotSources {
  MainQueue& main;
  const WorkspaceTree& tree;
  const Settings& settings;
  const Selection& selection;
  const ExecutionTable& executions;
  const UsageTracker& usage;
  const SessionControls& controls;
  const Router& router;
  const ImagineController& imagine;
  ProjectContextService& context;
  /// The workspace that belongs to no project.
  std::function<bool(const Uuid&)> isGeneral;
  std::string hostName;
  /// Fills in what other features know (update, fleet, automations, diagnosis); may be empty.
  std::function<void(RemoteSnapshot&)> addFeatures = {};
};

/// All but `workspaces`, which stays empty.
RemoteSnapshot remoteSnapshotState(const RemoteSnapshotSources& sources);

/// A conversation without its entries.
RemoteThread remoteThreadHead(const ChatThread& thread);
RemoteChatEntry remoteEntry(ChatEntry entry);
/// A workspace without its conversations.
RemoteWorkspace remoteWorkspaceHead(const Workspace& workspace, bool isGeneral,
                                    const ProjectContextProfile* context);

/// The question that a client is shown: of the selected conversation, else of the media generator.
struct RemoteQuestion {
  std::shared_ptr<const PermissionRequest> request;  // null when none is open
  std::optional<ThreadExecutionKey> key;             // absent: the media generator's
};
RemoteQuestion remoteQuestion(const ExecutionTable& executions, const Selection& selection);

}  // namespace vantrell
