#include "records/values/transcript.h"

#include <gtest/gtest.h>
#include <random>

namespace vantrell {
namespace {

ChatEntry entryWith(std::string id) {
  ChatEntry entry;
  entry.id = std::move(id);
  return entry;
}

/// What an index must never differ from.
std::optional<std::size_t> search(const std::vector<ChatEntry>& entries, std::string_view id) {
  const auto found = std::ranges::find(entries, id, &ChatEntry::id);
  if (found == entries.end()) return std::nullopt;
  return static_cast<std::size_t>(found - entries.begin());
}

TEST(Transcript, FindsWhatALinearSearchFinds) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    std::mt19937 random(seed);
    const auto below = [&random](std::size_t end) {
      return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
    };
    Transcript transcript;
    std::vector<ChatEntry> model;
    // Few ids mean many doubles, many ids a growing table.
    const std::size_t ids = seed % 2 == 0 ? 20 : 4000;
    const auto anyID = [&] { return "id-" + std::to_string(below(ids)); };
    for (int step = 0; step < 3000; ++step) {
      switch (below(12)) {
        case 0: {
          const std::size_t count = below(model.size() + 2);
          // Deep cuts are rare, so that the transcript also grows long.
          if (below(10) != 0 && count + 5 < model.size()) break;
          transcript.truncate(count);
          if (count < model.size()) model.resize(count);
          break;
        }
        case 1: {
          const Transcript copy = transcript;
          ASSERT_TRUE(copy == transcript);
          transcript = copy;
          break;
        }
        case 2:
        case 3:
        case 4:
        case 5: {
          const std::string id = anyID();
          ASSERT_EQ(transcript.indexOf(id), search(model, id)) << "seed " << seed;
          break;
        }
        default: {
          ChatEntry entry = entryWith(anyID());
          model.push_back(entry);
          const ChatEntry& appended = transcript.append(std::move(entry));
          ASSERT_EQ(&appended, &std::as_const(transcript).back());
        }
      }
      ASSERT_EQ(transcript.size(), model.size());
    }
    for (std::size_t id = 0; id < ids; ++id) {
      const std::string text = "id-" + std::to_string(id);
      ASSERT_EQ(transcript.indexOf(text), search(model, text)) << "seed " << seed;
    }
  }
}

TEST(Transcript, MovedFromOneCanBeUsedAgain) {
  Transcript first{entryWith("a"), entryWith("b")};
  EXPECT_EQ(first.indexOf("b"), 1U);
  Transcript second = std::move(first);
  EXPECT_EQ(second.indexOf("b"), 1U);
  first.clear();
  first.append(entryWith("b"));
  EXPECT_EQ(first.indexOf("b"), 0U);
  EXPECT_EQ(first.indexOf("a"), std::nullopt);
}

}  // namespace
}  // namespace vantrell
