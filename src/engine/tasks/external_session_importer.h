// Turns sessions that the agents' programs know into conversations of the project in whose folder
// they work. A conversation holds a note and the session's id alone, so that its first prompt
// resumes the session; nothing is read from the session, and nothing is sent to it. Main queue.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "records/values/external_session.h"

namespace vantrell {

class WorkspaceTree;

struct ExternalSessionImportSummary {
  std::size_t importedCount = 0;  // conversations that were made
  std::size_t updatedCount = 0;   // and those that were changed
};

namespace ExternalSessionImporter {

/// A session that a conversation stands for already is only noted there. One in the folder of no
/// project makes a project of it.
ExternalSessionImportSummary merge(std::vector<ExternalProviderSession> sessions,
                                   WorkspaceTree& tree, Date now);

/// On one line and not too long; where nothing is left, the provider's name.
std::string cleanedTitle(std::string_view title, AgentProvider provider);

}  // namespace ExternalSessionImporter

}  // namespace vantrell
