// Folds neighbouring tool entries of the same sort into groups, so that a transcript reads as
// messages with a few groups between them. Pure functions, any thread.
#pragma once

#include <string>
#include <vector>

#include "presentation/transcript_item.h"

namespace vantrell::ToolGrouping {

/// The entries in order; two or more tool entries side by side with one key become a group.
std::vector<TranscriptItem> transcriptItems(std::vector<ChatEntry> entries);
/// The sort of a tool entry: by its title, or that it runs a command.
std::string key(const ChatEntry& entry);
/// The label of a group with this first entry; of an empty one for none.
std::string displayTitle(const ChatEntry* entry);
/// One line of its input, for its row: the command, the path, what is searched.
std::string summary(const ChatEntry& entry);

}  // namespace vantrell::ToolGrouping
