#include "shell/terminal/transcript_printer.h"

#include <gtest/gtest.h>

#include "shell/terminal/terminal_text.h"

namespace vantrell::shell {
namespace {

ChatEntry entry(std::string id, ChatEntryKind kind, std::string text) {
  return {.id = std::move(id), .kind = kind, .text = std::move(text)};
}
ChatEntry tool(std::string id, std::string title, std::string status) {
  ChatEntry made = entry(std::move(id), ChatEntryKind::tool, "{}");
  made.title = std::move(title);
  made.status = std::move(status);
  return made;
}
RunRecord run(RunRecordStatus status, std::string message) {
  RunRecord made;
  made.status = status;
  made.statusMessage = std::move(message);
  return made;
}

class TranscriptPrinterTest : public testing::Test {
 protected:
  void stream(ChatEntryKind kind, const std::string& id, const std::vector<std::string>& chunks,
              RunObserver& to) {
    auto streamed = entry(id, kind, "");
    for (const auto& chunk : chunks) {
      streamed.text += chunk;
      &chunk == &chunks.front() ? to.entryAdded(streamed) : to.textAdded(streamed, chunk);
    }
  }

  std::string plainOutput, liveOutput, liveStatus;
  TranscriptPrinter plain{[this](std::string_view bytes) { plainOutput += bytes; },
                          TerminalStyle::plain()};
  TranscriptPrinter live{[this](std::string_view bytes) { liveOutput += bytes; },
                         TerminalStyle::live(-1)};
};

TEST_F(TranscriptPrinterTest, StreamsAnswersAndMarksThoughtsWhateverTheChunks) {
  stream(ChatEntryKind::thought, "t", {"\nhm", "m\nand ", "\nso\n"}, plain);
  stream(ChatEntryKind::assistant, "a", {"One", " two.\n", "Three."}, plain);
  EXPECT_EQ(plainOutput, "│ hmm\n│ and \n│ so\n\nOne two.\n");
  plain.ended(nullptr);
  EXPECT_TRUE(plainOutput.ends_with("Three.\n"));
}

TEST_F(TranscriptPrinterTest, ToolIsOneLineAtItsEndWithTheBestOfItsTitles) {
  live.status = [this](std::string_view text) { liveStatus = text; };
  for (auto* printer : {&plain, &live}) {
    printer->entryAdded(tool("1", "Read\nx", "pending"));
    printer->entryReplaced(tool("1", "Using a tool", "in_progress"));
    printer->entryReplaced(tool("1", "Using a tool", "completed"));
    printer->entryAdded(tool("2", "Write \x1b[31mx", "failed"));
    printer->entryAdded(tool("3", "Hang", "in_progress"));
    const auto end = run(RunRecordStatus::cancelled, "Stopped by you.");
    printer->runChanged(end);
    printer->ended(&end);
  }
  EXPECT_EQ(plainOutput, "✓ Read x\n✗ Write ␛[31mx (failed)\n▸ Hang\n\n■ Stopped by you.\n");
  EXPECT_EQ(liveStatus, "▸ Hang");
}

TEST_F(TranscriptPrinterTest, SilenceIsToldOnALineOfItsOwnInTheMidstOfAnAnswer) {
  for (RunObserver* printer :
       {static_cast<RunObserver*>(&plain), static_cast<RunObserver*>(&live)}) {
    const auto silent = run(RunRecordStatus::running, "Kimi is silent.");
    auto answer = entry("a", ChatEntryKind::assistant, "One");
    printer->entryAdded(answer);
    printer->livenessChanged(silent);
    answer.text = "One two";
    printer->textAdded(answer, " two");
    printer->ended(nullptr);
  }
  EXPECT_EQ(plainOutput, "One\n\n• Kimi is silent.\n\n two\n");
  EXPECT_EQ(liveOutput, "One\n\n\x1b[33m• Kimi is silent.\x1b[0m\n\ntwo\n") << "laid out";
}

TEST_F(TranscriptPrinterTest, LiveAnswerIsLaidOutAroundWhatComesBetween) {
  auto answer = entry("a", ChatEntryKind::assistant, "- one\n- tw");
  live.entryAdded(answer);
  EXPECT_EQ(liveOutput, "• one\n") << "lines that are complete";
  live.entryAdded(tool("1", "Read x", "completed"));
  const auto add = [&](const std::string& text) {
    answer.text += text;
    live.textAdded(answer, text);
  };
  add("o\n- three\n\n```\nma");
  live.makeRoom();
  add("ke\n```\n");
  live.ended(nullptr);
  EXPECT_EQ(liveOutput,
            "• one\n• tw\n\n\x1b[32m✓ Read x\x1b[0m\n\no\n• three\n\n\x1b[36m  ma\x1b[0m\n\n"
            "\n\x1b[36m  ke\x1b[0m\n");
}

TEST_F(TranscriptPrinterTest, RepairedAnswerGoesOnOrComesAgain) {
  live.entryAdded(entry("a", ChatEntryKind::assistant, "One"));
  live.entryReplaced(entry("a", ChatEntryKind::assistant, "One two"));
  live.entryReplaced(entry("a", ChatEntryKind::assistant, "One two"));
  live.entryReplaced(entry("a", ChatEntryKind::assistant, "Three"));
  live.ended(nullptr);
  EXPECT_EQ(liveOutput, "One two\n\nThree\n");
}

TEST_F(TranscriptPrinterTest, PlanComesWholeWhereItsStepsAreNewAndElseWhatIsDone) {
  std::vector<PlanEntry> plan = {{"1", "look", "pending", ""}, {"2", "test", "pending", ""}};
  plain.planReplaced(plan);
  plan[0].status = "completed";
  plan[1].status = "in_progress";
  plain.planReplaced(plan);
  plan.push_back({"3", "ship", "pending", ""});
  plain.planReplaced(plan);
  EXPECT_EQ(plainOutput,
            "Plan\n  ○ look\n  ○ test\n\n  ✓ look\n\nPlan\n  ✓ look\n  ▸ test\n  ○ ship\n");
}

TEST_F(TranscriptPrinterTest, NothingForeignDrivesTheTerminal) {
  std::string bytes;
  TranscriptPrinter printer([&](std::string_view more) { bytes += more; }, TerminalStyle::live(-1));
  printer.introduced({.runtime = "\x1b[2J\xE2\x80\xAE\xC2\x9B"
                                 "1A",
                      .folder = "\x1b]0;x\x07"});
  stream(ChatEntryKind::assistant, "a", {"\x1b", "[1A\xE2\x80\x8E\n\n", "# \x1b[31m\b"}, printer);
  stream(ChatEntryKind::thought, "t", {"\x1b[1A"}, printer);
  printer.entryAdded(tool("1", "\x1b[1A", "completed"));
  printer.entryAdded(entry("s", ChatEntryKind::system, "\x1b[1A"));
  const auto end = run(RunRecordStatus::failed, "\x1b[1A");
  printer.runChanged(end);
  printer.ended(&end);
  std::string left = bytes;
  for (const std::string_view look :
       {"\x1b[0m", "\x1b[1m", "\x1b[2m", "\x1b[31m", "\x1b[32m", "\x1b[33m"}) {
    for (std::size_t at; (at = left.find(look)) != left.npos;) left.erase(at, look.size());
  }
  EXPECT_EQ(left, sanitized(left)) << left;
}

TEST_F(TranscriptPrinterTest, SilentTurnIsNotTakenForAnAnswer) {
  const auto end = run(RunRecordStatus::completed, "Kimi finished the task.");
  plain.entryAdded(entry("u", ChatEntryKind::user, "Why?"));
  plain.runChanged(end);
  plain.ended(&end);
  EXPECT_EQ(plainOutput,
            "› Why?\n\n• The agent ended its turn without a word.\n✓ Kimi finished the task.\n");
}

TEST_F(TranscriptPrinterTest, StopBeforeTheRunHasBegunIsNotTakenForTheEndOfTheRunBefore) {
  auto before = run(RunRecordStatus::completed, "Kimi finished the task.");
  before.id = Uuid::random();
  stream(ChatEntryKind::assistant, "a", {"So."}, plain);
  plain.runChanged(before);
  plain.entryAdded(entry("u2", ChatEntryKind::user, "Two"));
  plain.entryAdded(entry("s", ChatEntryKind::system, "Stopped by you."));
  plain.ended(&before);
  EXPECT_TRUE(plainOutput.ends_with("› Two\n\n■ Stopped by you.\n")) << plainOutput;
}

}  // namespace
}  // namespace vantrell::shell
