// Merges what a runtime plays back of a stored session into the transcript that is stored here, so
// that neither loses anything. Pure.
#pragma once

#include <cstddef>
#include <vector>

#include "records/values/transcript.h"

namespace vantrell {

/// The merged transcript. Every stored entry stays, in its order, with its id and time: also those
/// that no runtime knows (system entries, hook output, questions about the status and their
/// answers), prompts that never reached the agent, partial answers, and what a shorter playback
/// leaves out. What was played back and is not stored yet is added in its order, beside the turn
/// that it belongs to. Of an entry that is in both, the longer text and the later status count. The
/// stored entries from `turn` on belong to the turn at hand and stay at the end.
std::vector<ChatEntry> mergePlayback(const Transcript& stored, std::size_t turn,
                                     const Transcript& played);

}  // namespace vantrell
