// The files of orchestration (usage, notes, contexts of projects) for a command that only looks.
#pragma once

#include "app/user_state.h"
#include "records/stores/orchestration_store.h"

namespace vantrell::shell {

inline OrchestrationStore storedOrchestration() {
  return {UserFolders{}.orOwn().support, Date::current, [](const auto&) {}};
}

}  // namespace vantrell::shell
