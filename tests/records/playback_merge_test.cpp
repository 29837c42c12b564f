#include "records/values/playback_merge.h"

#include <gmock/gmock.h>
#include <random>

namespace vantrell::tests {
namespace {

using ::testing::ElementsAreArray;

using Lines = std::vector<std::string>;

/// "kind id text": user, assistant, thought, tool, system. A user's question about the status is
/// "user", its answer "reply". The text of a tool line is its status.
ChatEntry entryOf(const std::string& line, AgentProvider provider = AgentProvider::kimi) {
  const auto first = line.find(' ');
  const auto second = line.find(' ', first + 1);
  const std::string kind = line.substr(0, first);
  ChatEntry entry;
  entry.id = line.substr(first + 1, second - first - 1);
  entry.text = line.substr(second + 1);
  entry.provider = provider;
  if (kind == "user" || kind == "system" || kind == "reply") entry.provider.reset();
  if (kind == "other") entry.provider = AgentProvider::glm;
  entry.kind = kind == "user"      ? ChatEntryKind::user
               : kind == "system"  ? ChatEntryKind::system
               : kind == "thought" ? ChatEntryKind::thought
               : kind == "tool"    ? ChatEntryKind::tool
                                   : ChatEntryKind::assistant;
  if (kind == "tool") {
    entry.status = std::exchange(entry.text, "");
    entry.title = "ls";
  }
  return entry;
}

Transcript transcriptOf(const Lines& lines, Date time) {
  Transcript transcript;
  for (const auto& line : lines) {
    ChatEntry entry = entryOf(line);
    entry.createdAt = time;
    transcript.append(std::move(entry));
  }
  return transcript;
}

Lines shown(const std::vector<ChatEntry>& entries) {
  Lines lines;
  for (const auto& each : entries) {
    lines.push_back(each.id + " " + (each.kind == ChatEntryKind::tool ? *each.status : each.text));
  }
  return lines;
}

TEST(PlaybackMerge, LosesNothingOfEither) {
  const struct {
    const char* name;
    Lines stored, played, merged;
  } cases[] = {
      {"the same again",
       {"user s1 One", "assistant s2 Yes", "user s3 Two", "assistant s4 No"},
       {"user p1 One", "assistant p2 Yes", "user p3 Two", "assistant p4 No"},
       {"s1 One", "s2 Yes", "s3 Two", "s4 No"}},
      {"nothing stored", {}, {"user p1 One", "assistant p2 Yes"}, {"p1 One", "p2 Yes"}},
      {"nothing played", {"user s1 One", "system s2 Error"}, {}, {"s1 One", "s2 Error"}},
      {"system entries and hook output stay in place",
       {"user s1 One", "system s2 Hook", "assistant s3 Yes", "system s4 Error", "user s5 Two"},
       {"user p1 One", "assistant p2 Yes", "user p3 Two", "assistant p4 No"},
       {"s1 One", "s2 Hook", "s3 Yes", "s4 Error", "s5 Two", "p4 No"}},
      {"a question about the status in the middle of a turn",
       {"user s1 One", "assistant s2 Yes", "user s3 status?", "reply s4 Working",
        "tool t completed", "assistant s5 Done", "user s6 Two"},
       {"user p1 One", "assistant p2 Yes", "tool t completed", "assistant p3 Done", "user p4 Two"},
       {"s1 One", "s2 Yes", "s3 status?", "s4 Working", "t completed", "s5 Done", "s6 Two"}},
      {"a prompt that never reached the agent",
       {"user s1 One", "assistant s2 Yes", "user s3 Lost", "system s4 Error", "user s5 Two",
        "assistant s6 No"},
       {"user p1 One", "assistant p2 Yes", "user p3 Two", "assistant p4 No"},
       {"s1 One", "s2 Yes", "s3 Lost", "s4 Error", "s5 Two", "s6 No"}},
      {"the same prompt, which reached it the second time",
       {"user s1 Go", "system s2 Error", "user s3 Go", "assistant s4 Yes"},
       {"user p1 Go", "assistant p2 Yes"},
       {"s1 Go", "s2 Error", "s3 Go", "s4 Yes"}},
      {"a partial answer that the runtime forgot",
       {"user s1 One", "assistant s2 I will", "user s3 Two"},
       {"user p1 One", "user p2 Two", "assistant p3 Yes"},
       {"s1 One", "s2 I will", "s3 Two", "p3 Yes"}},
      {"a partial answer that the runtime has whole",
       {"user s1 One", "assistant s2 I wi", "tool t failed", "user s3 Two"},
       {"user p1 One", "assistant p2 I will.", "tool t completed", "assistant p3 Done."},
       {"s1 One", "s2 I will.", "t completed", "p3 Done.", "s3 Two"}},
      {"another partial answer than the runtime's",
       {"user s1 One", "assistant s2 I will"},
       {"user p1 One", "assistant p2 No."},
       {"s1 One", "s2 I will", "p2 No."}},
      {"text divided in another way",
       {"user s1 One", "assistant s2 Let me see. Done.", "tool t completed"},
       {"user p1 One", "assistant p2 Let me see.", "tool t completed", "assistant p3 Done."},
       {"s1 One", "s2 Let me see. Done.", "t completed"}},
      {"other line breaks",
       {"user s1 One", "assistant s2 a\n\nb"},
       {"user p1 One ", "assistant p2 a\nb"},
       {"s1 One", "s2 a\n\nb"}},
      {"a shorter playback: the first turns",
       {"user s1 One", "assistant s2 Yes", "user s3 Two", "assistant s4 No"},
       {"user p1 One", "assistant p2 Yes"},
       {"s1 One", "s2 Yes", "s3 Two", "s4 No"}},
      {"a shorter playback: a summary and the last turns",
       {"user s1 One", "assistant s2 Yes", "user s3 Two", "assistant s4 No"},
       {"assistant p1 Summary", "user p2 Two", "assistant p3 No"},
       {"s1 One", "s2 Yes", "p1 Summary", "s3 Two", "s4 No"}},
      {"a shorter playback: without thoughts and tools",
       {"user s1 One", "thought s2 hm", "tool t completed", "assistant s3 Yes"},
       {"user p1 One", "assistant p2 Yes"},
       {"s1 One", "s2 hm", "t completed", "s3 Yes"}},
      {"turns of the session that were given elsewhere",
       {"user s1 One", "assistant s2 Yes"},
       {"user p1 One", "assistant p2 Yes", "user p3 More", "tool t completed", "assistant p4 No"},
       {"s1 One", "s2 Yes", "p3 More", "t completed", "p4 No"}},
      {"the same words with different answers",
       {"user s1 go on", "assistant s2 A", "user s3 go on", "assistant s4 B"},
       {"user p1 go on", "assistant p2 B", "user p3 go on", "assistant p4 C"},
       {"s1 go on", "s2 A", "s3 go on", "s4 B", "p3 go on", "p4 C"}},
      {"what another provider did",
       {"user s1 One", "assistant s2 Yes", "user s3 Two", "other s4 Done", "user s5 Three",
        "assistant s6 No"},
       {"user p1 One", "assistant p2 Yes", "user p3 Three", "assistant p4 No"},
       {"s1 One", "s2 Yes", "s3 Two", "s4 Done", "s5 Three", "s6 No"}},
      {"another provider's answer to the same prompt",
       {"user s1 One", "other s2 Yes"},
       {"user p1 One", "assistant p2 Yes"},
       {"s1 One", "s2 Yes", "p2 Yes"}},
      {"a tool names its turn",
       {"user s1 One", "tool t failed"},
       {"user p1 other words", "tool t completed"},
       {"s1 One", "p1 other words", "t completed"}},
      {"an id that is taken",
       {"user s1 One", "assistant m1 Yes", "user s3 Two", "assistant m2 No"},
       {"user p1 One", "assistant m2 Perhaps"},
       {"s1 One", "m1 Yes", "m2-2 Perhaps", "s3 Two", "m2 No"}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.name);
    const Transcript stored = transcriptOf(each.stored, Date(1));
    const Transcript played = transcriptOf(each.played, Date(9));
    const auto merged = mergePlayback(stored, stored.size(), played);
    EXPECT_THAT(shown(merged), ElementsAreArray(each.merged));
    for (const auto& entry : merged) {
      EXPECT_EQ(entry.createdAt, stored.find(entry.id) ? Date(1) : Date(9)) << entry.id;
    }
    EXPECT_THAT(shown(mergePlayback(Transcript(merged), merged.size(), played)),
                ElementsAreArray(shown(merged)))
        << "the second time nothing is new";
  }
}

TEST(PlaybackMerge, KnowsACallByItsInputWhereKimiPlaysItBackWithAnotherIdAndTitle) {
  Transcript stored =
      transcriptOf({"user s1 One", "tool 0:call completed", "assistant s2 Done"}, {});
  Transcript played =
      transcriptOf({"user p1 One", "tool 1:call completed", "assistant p2 Done"}, {});
  stored[1].text = played[1].text = R"({"command": "ls"})";
  stored[1].title = "Running: ls";
  played[1].title = "Bash";
  const auto merged = mergePlayback(stored, stored.size(), played);
  EXPECT_THAT(shown(merged), ElementsAreArray({"s1 One", "0:call completed", "s2 Done"}));
  EXPECT_EQ(merged.at(1).title, "Running: ls");
}

TEST(PlaybackMerge, LeavesTheTurnAtHandAtTheEnd) {
  const Transcript stored =
      transcriptOf({"user s1 One", "assistant s2 Yes", "user s3 One", "system s4 Hook"}, Date(1));
  const Transcript played =
      transcriptOf({"user p1 One", "assistant p2 Yes", "assistant s4 x"}, Date(9));
  EXPECT_THAT(shown(mergePlayback(stored, 2, played)),
              ElementsAreArray({"s1 One", "s2 Yes", "s4-2 x", "s3 One", "s4 Hook"}));
}

/// What a session holds of a conversation: some turns, cut, divided otherwise, and new ones.
TEST(PlaybackMerge, KeepsTheOrderOfBothWhateverIsMissing) {
  for (unsigned seed = 0; seed < 400; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto below = [&random](unsigned end) { return random() % end; };
    Lines stored, played;
    for (unsigned turn = 0; turn < 1 + below(8); ++turn) {
      const std::string n = std::to_string(turn);
      const bool isHere = below(4) != 0;
      const bool isThere = !isHere || below(3) != 0;
      const auto add = [&](const std::string& kind, const std::string& name,
                           const std::string& text) {
        if (isHere && below(8) != 0) stored.push_back(kind + " s" + name + n + " " + text);
        if (isThere && below(8) != 0) played.push_back(kind + " p" + name + n + " " + text);
      };
      const std::string prompt = "prompt " + std::to_string(below(3));
      if (isHere) stored.push_back("user su" + n + " " + prompt);
      if (isThere) played.push_back("user pu" + n + " " + prompt);
      if (isHere && below(3) == 0) stored.push_back("system s" + n + " Hook " + n);
      add("thought", "h", "thought " + n);
      const std::string tool = "tool t" + n + " completed";
      if (isHere) stored.push_back(tool);
      if (isThere) played.push_back(tool);
      add("assistant", "a", "answer " + std::to_string(below(3)) + n);
    }
    const Transcript ours = transcriptOf(stored, Date(1));
    const Transcript theirs = transcriptOf(played, Date(9));
    const auto merged = mergePlayback(ours, ours.size(), theirs);
    SCOPED_TRACE(testing::PrintToString(stored) + "\n" + testing::PrintToString(played) + "\n" +
                 testing::PrintToString(shown(merged)));
    // Each entry of either is there, in its order, by its text and kind.
    for (const Transcript* each : {&ours, &theirs}) {
      auto next = merged.begin();
      for (const ChatEntry& entry : *each) {
        next = std::find_if(next, merged.end(), [&](const ChatEntry& other) {
          return other.kind == entry.kind &&
                 (each == &ours || entry.kind == ChatEntryKind::tool ? other.id == entry.id
                                                                     : other.text == entry.text);
        });
        ASSERT_NE(next, merged.end()) << entry.id << ' ' << entry.text;
        ++next;
      }
    }
    const Transcript again(merged);
    for (std::size_t i = 0; i < merged.size(); ++i) {
      ASSERT_EQ(again.indexOf(merged[i].id), i) << "ids are unique";
    }
    ASSERT_TRUE(mergePlayback(again, again.size(), theirs) == merged);
  }
}

}  // namespace
}  // namespace vantrell::tests
