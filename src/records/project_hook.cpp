#include "records/project_hook.h"

#include "records/conversation_records.h"

namespace vantrell {

bool isHookEntry(const ChatEntry& entry) {
  return entry.kind == ChatEntryKind::tool && entry.title.value_or("").starts_with(hookEntryTitle);
}

}  // namespace vantrell
