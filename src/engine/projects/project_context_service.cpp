#include "engine/projects/project_context_service.h"

#include <fmt/format.h>

#include "platform/files/files.h"
#include "platform/queues/dispatch.h"
#include "platform/queues/weakly.h"
#include "platform/text/text.h"
#include "records/stores/project_context_store.h"

namespace vantrell {

namespace {
constexpr std::size_t longestBody = 18'000;  // user-perceived characters
}

ProjectContextService::ProjectContextService(EngineCore& core)
    : main_(core.main),
      tree_(core.tree),
      selection_(core.selection),
      changes_(core.changes),
      store_(*core.orchestration),
      ports_(core.ports) {}

bool ProjectContextService::isSelected(const Uuid& workspaceID) const {
  return selection_.workspaceID() == workspaceID && workspaceID_ == workspaceID;
}

bool ProjectContextService::isGeneral(const Workspace& workspace) const {
  return files::standardized(workspace.path) ==
         files::standardized(tree_.workspaces().front().path);
}

// ---- loading ------------------------------------------------------------------------------------

void ProjectContextService::load() {
  const int number = ++loads_;
  const Workspace* workspace =
      selection_.workspaceID() ? tree_.workspace(*selection_.workspaceID()) : nullptr;
  workspaceID_ = workspace ? std::optional(workspace->id) : std::nullopt;
  profile_ = workspace ? loadStoredProjectContext(store_, workspace->id, main_.now())
                       : ProjectContextProfile::blank(main_.now());
  isLooking_ = workspace != nullptr;
  if (!workspace) return loaded();
  changes_.announce({.kind = Change::Kind::projectContextChanged});
  ports_.discoverContextSources(workspace->path,
                                weakly(this, [number](ProjectContextService& self,
                                                      std::vector<ProjectContextSource> sources) {
                                  if (number != self.loads_)
                                    return;  // another selection has come in between
                                  self.profile_.discoveredSources = std::move(sources);
                                  self.loaded();
                                }));
}

void ProjectContextService::loaded() {
  isLooking_ = false;
  changes_.announce({.kind = Change::Kind::projectContextChanged});
  for (const auto& done : std::exchange(waiting_, {})) done();
}

void ProjectContextService::whenLoaded(std::function<void()> done) {
  if (!isLooking_) return done();
  waiting_.push_back(std::move(done));
}

ProjectContextProfile ProjectContextService::profile(const Uuid& workspaceID) {
  return isSelected(workspaceID) ? profile_
                                 : loadStoredProjectContext(store_, workspaceID, main_.now());
}

// ---- for prompts --------------------------------------------------------------------------------

std::string ProjectContextService::block(const ProjectContextProfile& profile) {
  const std::string body = profile.promptContext(longestBody);
  return body.empty() ? body : fmt::format("VANTRELL PROJECT CONTEXT\n{}", body);
}

void ProjectContextService::projectContextPrompt(const ThreadExecutionKey& key,
                                                 std::function<void(std::string)> reply) {
  const Workspace* workspace = tree_.workspace(key.workspaceID);
  if (!workspace) return reply("");
  if (isSelected(workspace->id)) {
    if (!isLooking_) return reply(block(profile_));
    // By then another workspace may be selected.
    return whenLoaded(
        weakly(this, [key, reply = std::move(reply)](ProjectContextService& self) mutable {
          self.projectContextPrompt(key, std::move(reply));
        }));
  }
  ports_.discoverContextSources(
      workspace->path,
      weakly(this, [id = workspace->id, reply = std::move(reply)](
                       ProjectContextService& self, std::vector<ProjectContextSource> sources) {
        ProjectContextProfile profile = self.profile(id);
        profile.discoveredSources = std::move(sources);
        reply(block(profile));
      }));
}

// ---- changing -----------------------------------------------------------------------------------

bool ProjectContextService::update(const Uuid& workspaceID,
                                   const std::function<void(ProjectContextProfile&)>& mutate) {
  if (!tree_.workspace(workspaceID)) return false;
  ProjectContextProfile changed = profile(workspaceID);
  mutate(changed);
  changed.updatedAt = main_.now();
  const auto saved = saveProjectContext(store_, changed, workspaceID);
  saveFailure_ = saved ? "" : saved.error().description;
  if (!isSelected(workspaceID)) return true;
  profile_ = std::move(changed);
  changes_.announce({.kind = Change::Kind::projectContextChanged});
  return true;
}

std::string ProjectContextService::projectInstructions(const Uuid& workspaceID) {
  const Workspace* workspace = tree_.workspace(workspaceID);
  return workspace && !isGeneral(*workspace) ? profile(workspaceID).instructions : "";
}

void ProjectContextService::setProjectInstructions(std::string_view text,
                                                   std::optional<Uuid> workspaceID) {
  const auto id = workspaceID ? workspaceID : selection_.workspaceID();
  const Workspace* workspace = id ? tree_.workspace(*id) : nullptr;
  if (!workspace || isGeneral(*workspace)) return;
  update(*id, [text](ProjectContextProfile& profile) {
    profile.instructions = std::string(text::trimmed(text));
  });
  ports_.updateRemoteSnapshot();
}

void ProjectContextService::addProjectDecision(std::string_view title, std::string_view detail,
                                               std::optional<Uuid> workspaceID) {
  const auto id = workspaceID ? workspaceID : selection_.workspaceID();
  const std::string name(text::trimmed(title)), words(text::trimmed(detail));
  if (!id || name.empty() || words.empty()) return;
  update(*id, [&](ProjectContextProfile& profile) {
    profile.decisions.push_back({Uuid::random(), name, words, main_.now()});
  });
}

}  // namespace vantrell
