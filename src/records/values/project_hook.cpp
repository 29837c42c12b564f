#include "records/values/project_hook.h"

#include "records/values/conversation_records.h"

namespace vantrell {

bool isHookEntry(const ChatEntry& entry) {
  return entry.kind == ChatEntryKind::tool && entry.title.value_or("").starts_with(hookEntryTitle);
}

}  // namespace vantrell
