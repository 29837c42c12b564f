// Where the profiles of projects are kept: contexts/{id}.json among the orchestration records. Main
// queue; the files are small.
#pragma once

#include "platform/files/files.h"
#include "platform/values/json.h"
#include "records/values/project_context.h"

namespace vantrell {

class OrchestrationStore;

/// What is stored of the project, or a blank profile when that is missing or cannot be read.
ProjectContextProfile loadStoredProjectContext(OrchestrationStore& store, const Uuid& workspaceID,
                                               Date now);
/// A file that could not be read is kept beside the new one.
files::Result<> saveProjectContext(OrchestrationStore& store, const ProjectContextProfile& profile,
                                   const Uuid& workspaceID);

/// As it is stored, for people and scripts.
Json projectContextAsJson(const ProjectContextProfile& profile);

}  // namespace vantrell
