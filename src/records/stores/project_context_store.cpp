#include "records/stores/project_context_store.h"

#include <fmt/format.h>

#include "platform/text/text.h"
#include "records/stores/orchestration_store.h"

namespace vantrell {

// Found by argument-dependent look-up, so they stand beside the records, not in a nameless
// namespace.

static constexpr auto fieldsOf(const ProjectDecision*) {
  using R = ProjectDecision;
  return fields(field("id", &R::id), field("title", &R::title), field("detail", &R::detail),
                field("createdAt", &R::createdAt));
}

static constexpr auto fieldsOf(const ProjectContextSource*) {
  using R = ProjectContextSource;
  return fields(field("path", &R::path), field("title", &R::title), field("summary", &R::summary),
                field("modifiedAt", &R::modifiedAt));
}

static constexpr auto fieldsOf(const ProjectHook*) {
  using R = ProjectHook;
  return fields(field("id", &R::id), field("event", &R::event),
                field("relativeExecutablePath", &R::relativeExecutablePath),
                field("enabled", &R::enabled));
}

static constexpr auto fieldsOf(const ProjectContextProfile*) {
  using R = ProjectContextProfile;
  return fields(field("instructions", &R::instructions), field("pinnedFiles", &R::pinnedFiles),
                field("decisions", &R::decisions),
                field("discoveredSources", &R::discoveredSources), field("hooks", &R::hooks),
                field("updatedAt", &R::updatedAt));
}

static std::string nameOf(const Uuid& workspaceID) {
  return fmt::format("contexts/{}.json", text::lowercased(workspaceID.text()));
}

ProjectContextProfile loadStoredProjectContext(OrchestrationStore& store, const Uuid& workspaceID,
                                               Date now) {
  return store.load(nameOf(workspaceID), ProjectContextProfile::blank(now));
}

files::Result<> saveProjectContext(OrchestrationStore& store, const ProjectContextProfile& profile,
                                   const Uuid& workspaceID) {
  return store.save(profile, nameOf(workspaceID));
}

Json projectContextAsJson(const ProjectContextProfile& profile) {
  std::string text;
  JsonWriter writer(text);
  writeJson(writer, profile, orchestrationJson);
  auto json = json::parse(text);
  return json ? *std::move(json) : Json();
}

}  // namespace vantrell
