#include "shell/terminal/transcript_printer.h"

#include <gtest/gtest.h>

#include "platform/queues/manual_main_queue.h"
#include "shell/terminal/terminal_text.h"
#include "support/terminal_screen.h"

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
    auto streamed = entry(id, kind, chunks.front());
    to.entryAdded(streamed);
    for (std::size_t i = 1; i < chunks.size(); ++i) to.textAdded(streamed, chunks[i]);
  }

  std::string plainOutput;
  TranscriptPrinter plain{[this](std::string_view bytes) { plainOutput += bytes; },
                          TerminalStyle::plain()};
  tests::TerminalScreen screen;
  TranscriptPrinter live{[this](std::string_view bytes) { screen.write(bytes); },
                         TerminalStyle::live(-1)};
};

TEST_F(TranscriptPrinterTest, StreamsAnswersAndMarksThoughtsWhateverTheChunks) {
  stream(ChatEntryKind::thought, "t", {"\nhm", "m\nand ", "\nso\n"}, plain);
  stream(ChatEntryKind::assistant, "a", {"One", " two.\n", "Three."}, plain);
  EXPECT_EQ(plainOutput, "│ hmm\n│ and \n│ so\n\nOne two.\nThree.");
  plain.ended(nullptr);
  EXPECT_TRUE(plainOutput.ends_with("Three.\n"));
}

TEST_F(TranscriptPrinterTest, PlainOutputHasNoEscapeAndOneLineATool) {
  plain.entryAdded(tool("1", "Read\nx", "pending"));
  plain.entryReplaced(tool("1", "Read x", "in_progress"));
  plain.entryReplaced(tool("1", "Read x", "completed"));
  plain.entryAdded(tool("2", "Write \x1b[31mx", "failed"));
  plain.entryAdded(tool("3", "Hang", "in_progress"));
  const auto end = run(RunRecordStatus::cancelled, "Stopped by you.");
  plain.runChanged(end);
  plain.ended(&end);
  EXPECT_EQ(plainOutput, "✓ Read x\n✗ Write ␛[31mx (failed)\n▸ Hang\n\n■ Stopped by you.\n");
}

TEST_F(TranscriptPrinterTest, SilenceIsToldOnALineOfItsOwnInTheMidstOfAnAnswer) {
  for (RunObserver* printer :
       {static_cast<RunObserver*>(&plain), static_cast<RunObserver*>(&live)}) {
    const auto silent = run(RunRecordStatus::running, "Kimi is silent.");
    stream(ChatEntryKind::assistant, "a", {"One"}, *printer);
    printer->runChanged(silent);
    printer->livenessChanged(silent);
    stream(ChatEntryKind::assistant, "a", {" two"}, *printer);
    printer->ended(nullptr);
  }
  EXPECT_EQ(plainOutput, "One\n\n• Kimi is silent.\n\n two\n");
  EXPECT_EQ(screen.text(), "One\n\n• Kimi is silent.\n\ntwo\n") << "laid out";
}

TEST_F(TranscriptPrinterTest, ToolKeepsTheBestTitleThatItsUpdatesGave) {
  for (auto* printer : {&plain, &live}) {
    printer->entryAdded(tool("1", "Bash", "pending"));
    printer->entryReplaced(tool("1", "Using a tool", "in_progress"));
    printer->entryReplaced(tool("1", "Running: ls", "in_progress"));
    printer->entryReplaced(tool("1", "Using a tool", "completed"));
    printer->entryAdded(tool("2", "Using a tool", "completed"));
  }
  EXPECT_EQ(plainOutput, "✓ Running: ls\n✓ Using a tool\n");
  EXPECT_EQ(screen.text(), plainOutput);
}

TEST_F(TranscriptPrinterTest, LiveToolChangesInPlaceWhileItIsLastAndElseComesAgain) {
  live.entryAdded(tool("1", std::string(500, 'x'), "pending"));
  EXPECT_LE(screen.text().size(), 90U) << "cut, so that it can be drawn over";
  live.entryReplaced(tool("1", "first", "in_progress"));
  EXPECT_EQ(screen.text(), "▸ first\n");
  live.entryAdded(tool("2", "second", "pending"));
  live.entryReplaced(tool("1", "first", "in_progress"));
  EXPECT_EQ(screen.text(), "▸ first\n○ second\n▸ first\n") << "for as long as it takes";
  live.entryReplaced(tool("1", "first", "completed"));
  live.entryReplaced(tool("2", "second", "completed"));
  EXPECT_EQ(screen.text(), "▸ first\n○ second\n✓ first\n✓ second\n");
}

/// Also where a caller has forgotten to make a text safe.
TEST_F(TranscriptPrinterTest, NothingForeignDrivesTheTerminal) {
  std::string bytes;
  TranscriptPrinter printer([&](std::string_view more) { bytes += more; }, TerminalStyle::live(-1));
  printer.introduced({.runtime = "\x1b[2J\xE2\x80\xAE\xC2\x9B"
                                 "1A",
                      .folder = "\x1b]0;x\x07"});
  printer.remark("\x1b[1A\r\x1b[K");
  stream(ChatEntryKind::assistant, "a", {"\x1b", "[1A\xE2\x80\x8E\n\n", "# \x1b[31m\b"}, printer);
  stream(ChatEntryKind::thought, "t", {"\x1b[1A"}, printer);
  printer.entryAdded(tool("1", "\x1b[1A", "completed"));
  printer.entryAdded(entry("s", ChatEntryKind::system, "\x1b[1A"));
  printer.permissionAsked({.id = 1,
                           .title = "\x1b[1A",
                           .detail = "\x1b[1A",
                           .options = {{"y", "\x1b[1A", "allow_once"}}});
  const auto end = run(RunRecordStatus::failed, "\x1b[1A");
  printer.ended(&end);
  std::string left = bytes;
  for (const std::string_view look :
       {"\x1b[0m", "\x1b[1m", "\x1b[2m", "\x1b[31m", "\x1b[32m", "\x1b[33m"}) {
    for (std::size_t at; (at = left.find(look)) != left.npos;) left.erase(at, look.size());
  }
  EXPECT_EQ(left, sanitized(left)) << left;
}

TEST_F(TranscriptPrinterTest, PlanUpdatesInPlaceAndLaterTellsOnlyWhatIsDone) {
  std::vector<PlanEntry> plan = {{"1", "look", "pending", ""}, {"2", "test", "pending", ""}};
  for (auto* printer : {&plain, &live}) printer->planReplaced(plan);
  plan[0].status = "completed";
  plan[1].status = "in_progress";
  for (auto* printer : {&plain, &live}) printer->planReplaced(plan);
  EXPECT_EQ(plainOutput, "Plan\n  ○ look\n  ○ test\n\n  ✓ look\n");
  EXPECT_EQ(screen.text(), "Plan\n  ✓ look\n  ▸ test\n");

  for (auto* printer : {&plain, &live}) stream(ChatEntryKind::assistant, "a", {"Done."}, *printer);
  plan[1].status = "completed";
  for (auto* printer : {&plain, &live}) printer->planReplaced(plan);
  EXPECT_EQ(screen.text(), "Plan\n  ✓ look\n  ▸ test\n\nDone.\n\n  ✓ test\n");
  plan.push_back({"3", "ship", "pending", ""});
  live.planReplaced(plan);
  EXPECT_TRUE(screen.text().ends_with("Plan\n  ✓ look\n  ✓ test\n  ○ ship\n")) << screen.text();
}

TEST_F(TranscriptPrinterTest, PassingStatusLeavesNothingBehind) {
  live.runChanged(run(RunRecordStatus::starting, "Connecting to Kimi…"));
  EXPECT_EQ(screen.text(), "Connecting to Kimi…\n");
  stream(ChatEntryKind::assistant, "a", {"Hi"}, live);
  live.ended(nullptr);
  EXPECT_EQ(screen.text(), "Hi\n");
}

TEST_F(TranscriptPrinterTest, LiveAnswerIsLaidOutAroundWhatComesBetween) {
  auto answer = entry("a", ChatEntryKind::assistant, "## Look\n\n- one\n- tw");
  live.entryAdded(answer);
  EXPECT_EQ(screen.text(), "Look\n\n• one\n") << "lines that are complete";
  live.entryAdded(tool("1", "Read x", "pending"));
  live.entryReplaced(tool("1", "Read x", "completed"));
  const auto add = [&](const std::string& text) {
    answer.text += text;
    live.textAdded(answer, text);
  };
  add("o\n- three\n\n```\nma");
  live.remark("Saved.");
  add("ke\n");
  screen.write("^C");
  live.interrupted();
  add("```\n");
  live.ended(nullptr);
  EXPECT_EQ(screen.text(),
            "Look\n\n• one\n• tw\n\n✓ Read x\n\n  o\n• three\n\n  ma\n\nSaved.\n\n  ke\n");
}

TEST_F(TranscriptPrinterTest, RepairedAnswerGoesOnOrComesAnew) {
  live.entryAdded(entry("a", ChatEntryKind::assistant, "One"));
  live.entryReplaced(entry("a", ChatEntryKind::assistant, "One two"));
  live.remark("X");
  live.entryReplaced(entry("a", ChatEntryKind::assistant, "One two"));
  EXPECT_EQ(screen.text(), "One two\n\nX\n");
  live.entryReplaced(entry("a", ChatEntryKind::assistant, "Three"));
  live.ended(nullptr);
  EXPECT_EQ(screen.text(), "One two\n\nX\n\nThree\n");
}

TEST_F(TranscriptPrinterTest, AnswerIsLaidOutAtMostSoOftenAndWholeAtTheEnd) {
  ManualMainQueue queue;
  int writes = 0;
  TranscriptPrinter paced([&](std::string_view bytes) { screen.write(bytes), ++writes; },
                          TerminalStyle::live(-1), &queue);
  stream(ChatEntryKind::assistant, "a", {"- one\n", "- two\n"}, paced);
  EXPECT_EQ(screen.text(), "• one\n") << "the first at once";
  queue.advance(std::chrono::milliseconds(30));
  EXPECT_EQ(screen.text(), "• one\n• two\n");
  auto streamed = entry("a", ChatEntryKind::assistant, "- one\n- two\n");
  for (int i = 0; i < 500; ++i) {
    paced.textAdded(streamed, "- x\n");
    queue.advance(std::chrono::milliseconds(1));
  }
  EXPECT_LT(writes, 25);
  paced.textAdded(streamed, "- end");
  paced.ended(nullptr);
  EXPECT_TRUE(screen.text().ends_with("• x\n• end\n"));
  EXPECT_FALSE(queue.hasTimers());
}

TEST_F(TranscriptPrinterTest, QuestionStandsWhereItIsAnswered) {
  live.showsAnswerPrompt = true;
  const PermissionRequest request{
      .id = 1, .title = "Run ls", .detail = "", .options = {{"y", "Allow", "allow_once"}}};
  live.entryAdded(tool("1", "Run ls", "pending"));
  live.permissionAsked(request);
  screen.write("1\n");  // as the terminal shows it
  live.lineTyped();
  live.permissionAnswered(&request.options[0]);
  live.entryReplaced(tool("1", "Run ls", "completed"));
  EXPECT_EQ(screen.text(),
            "○ Run ls\n\n? Run ls\n  1  Allow\nYour answer (1): 1\n→ Allow\n\n✓ Run ls\n");
}

TEST_F(TranscriptPrinterTest, ShownKeyOfAnInterruptIsWipedAndNothingDrawnOverIt) {
  live.entryAdded(tool("1", "Hang", "in_progress"));
  screen.write("^C");
  live.interrupted();
  live.entryReplaced(tool("1", "Hang", "failed"));
  EXPECT_EQ(screen.text(), "▸ Hang\n✗ Hang (failed)\n");
}

TEST_F(TranscriptPrinterTest, SilentTurnIsNotTakenForAnAnswer) {
  const auto end = run(RunRecordStatus::completed, "Kimi finished the task.");
  live.entryAdded(entry("u", ChatEntryKind::user, "Why?"));
  live.ended(&end);
  EXPECT_EQ(screen.text(),
            "› Why?\n\n• The agent ended its turn without a word.\n✓ Kimi finished the task.\n");
  stream(ChatEntryKind::assistant, "a", {"So."}, plain);
  plain.ended(&end);
  EXPECT_EQ(plainOutput, "So.\n\n✓ Kimi finished the task.\n");
}

TEST_F(TranscriptPrinterTest, StopBeforeTheRunHasBegunIsNotTakenForTheEndOfTheRunBefore) {
  auto before = run(RunRecordStatus::completed, "Kimi finished the task.");
  before.id = Uuid::random();
  const auto stop = entry("s", ChatEntryKind::system, "Stopped by you.");
  stream(ChatEntryKind::assistant, "a", {"So."}, plain);
  plain.runChanged(before);
  plain.entryAdded(entry("u2", ChatEntryKind::user, "Two"));
  plain.entryAdded(stop);
  plain.ended(&before);
  EXPECT_TRUE(plainOutput.ends_with("› Two\n\n■ Stopped by you.\n")) << plainOutput;
  live.entryAdded(entry("u1", ChatEntryKind::user, "One"));
  live.entryAdded(stop);
  live.ended(nullptr);
  EXPECT_EQ(screen.text(), "› One\n\n■ Stopped by you.\n");
}

TEST_F(TranscriptPrinterTest, EndSaysHowItWentAndHowToGoOn) {
  ThreadExecutionKey key;
  key.threadID = *Uuid::parse("3F2A91C0-0000-4000-8000-000000000000");
  plain.introduced({.conversation = key, .runtime = "Kimi Code", .folder = "/p"});
  const auto end = run(RunRecordStatus::failed, "It broke.");
  plain.ended(&end);
  EXPECT_EQ(plainOutput,
            "Kimi Code in /p\n\n✗ It broke.\nTo go on: vantrell run --task 3F2A91C0 \"...\"\n");
}

}  // namespace
}  // namespace vantrell::shell
