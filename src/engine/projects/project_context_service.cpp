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

ProjectContextService::ProjectContextService(Dependencies dependencies) : core_(dependencies) {}

bool ProjectContextService::isSelected(const Uuid& workspaceID) const {
  return core_.selection.workspaceID() == workspaceID && workspaceID_ == workspaceID;
}

bool ProjectContextService::isGeneral(const Workspace& workspace) const {
  return files::standardized(workspace.path) ==
         files::standardized(core_.tree.workspaces().front().path);
}

// ---- loading ------------------------------------------------------------------------------------

void ProjectContextService::load() {
  const int number = ++loads_;
  const Workspace* workspace = core_.selection.workspaceID()
                                   ? core_.tree.workspace(*core_.selection.workspaceID())
                                   : nullptr;
  workspaceID_ = workspace ? std::optional(workspace->id) : std::nullopt;
  profile_ = workspace ? loadStoredProjectContext(core_.store, workspace->id, core_.main.now())
                       : ProjectContextProfile::blank(core_.main.now());
  isLooking_ = workspace != nullptr;
  if (!workspace) return loaded();
  core_.changes.mark(topics::projectContext);
  core_.services.discoverContextSources(
      workspace->path, weakly(this, [number](ProjectContextService& self,
                                             std::vector<ProjectContextSource> sources) {
        if (number != self.loads_) return;  // another selection has come in between
        self.profile_.discoveredSources = std::move(sources);
        self.loaded();
      }));
}

void ProjectContextService::loaded() {
  isLooking_ = false;
  core_.changes.mark(topics::projectContext);
  for (const auto& done : std::exchange(waiting_, {})) done();
}

void ProjectContextService::whenLoaded(std::function<void()> done) {
  if (!isLooking_) return done();
  waiting_.push_back(std::move(done));
}

ProjectContextProfile ProjectContextService::profile(const Uuid& workspaceID) {
  return isSelected(workspaceID)
             ? profile_
             : loadStoredProjectContext(core_.store, workspaceID, core_.main.now());
}

// ---- for prompts --------------------------------------------------------------------------------

std::string ProjectContextService::block(const ProjectContextProfile& profile) {
  const std::string body = profile.promptContext(longestBody);
  return body.empty() ? body : fmt::format("VANTRELL PROJECT CONTEXT\n{}", body);
}

void ProjectContextService::projectContextPrompt(const ThreadExecutionKey& key,
                                                 std::function<void(std::string)> reply) {
  const Workspace* workspace = core_.tree.workspace(key.workspaceID);
  if (!workspace) return reply("");
  if (isSelected(workspace->id)) {
    if (!isLooking_) return reply(block(profile_));
    // By then another workspace may be selected.
    return whenLoaded(
        weakly(this, [key, reply = std::move(reply)](ProjectContextService& self) mutable {
          self.projectContextPrompt(key, std::move(reply));
        }));
  }
  core_.services.discoverContextSources(
      workspace->path,
      weakly(this, [id = workspace->id, reply = std::move(reply)](
                       ProjectContextService& self, std::vector<ProjectContextSource> sources) {
        ProjectContextProfile profile = self.profile(id);
        profile.discoveredSources = std::move(sources);
        reply(block(profile));
      }));
}

// ---- changing -----------------------------------------------------------------------------------

Result<> ProjectContextService::update(const Uuid& workspaceID,
                                       const std::function<void(ProjectContextProfile&)>& mutate) {
  if (!core_.tree.workspace(workspaceID)) return refuse("That project is no longer available.");
  ProjectContextProfile changed = profile(workspaceID);
  mutate(changed);
  changed.updatedAt = core_.main.now();
  const auto saved = saveProjectContext(core_.store, changed, workspaceID);
  saveFailure_ = saved ? "" : saved.error().description;
  if (!isSelected(workspaceID)) return {};
  profile_ = std::move(changed);
  core_.changes.mark(topics::projectContext);
  return {};
}

std::string ProjectContextService::projectInstructions(const Uuid& workspaceID) {
  const Workspace* workspace = core_.tree.workspace(workspaceID);
  return workspace && !isGeneral(*workspace) ? profile(workspaceID).instructions : "";
}

Result<> ProjectContextService::setProjectInstructions(std::string_view text,
                                                       const Uuid& workspaceID) {
  const Workspace* workspace = core_.tree.workspace(workspaceID);
  if (workspace && isGeneral(*workspace)) {
    return refuse("Instructions belong to a project; General has none.");
  }
  auto updated = update(workspaceID, [text](ProjectContextProfile& profile) {
    profile.instructions = std::string(text::trimmed(text));
  });
  if (updated) core_.changes.mark(topics::remoteSnapshot);
  return updated;
}

Result<> ProjectContextService::addProjectDecision(std::string_view title, std::string_view detail,
                                                   const Uuid& workspaceID) {
  const std::string name(text::trimmed(title)), words(text::trimmed(detail));
  if (name.empty() || words.empty()) return refuse("A decision needs a title and a text.");
  return update(workspaceID, [&](ProjectContextProfile& profile) {
    profile.decisions.push_back({Uuid::random(), name, words, core_.main.now()});
  });
}

}  // namespace vantrell
