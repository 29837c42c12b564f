#include "records/stores/orchestration_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/in_child.h"
#include "support/temporary_folder.h"

namespace vantrell {

// Beside the namespace of the tests, since fields are found by their record's namespace.
struct StoredNote {
  std::string text;
  Date createdAt;
  std::optional<double> weight;
  bool operator==(const StoredNote&) const = default;
};
constexpr auto fieldsOf(const StoredNote*) {
  return fields(field("text", &StoredNote::text), field("createdAt", &StoredNote::createdAt),
                field("weight", &StoredNote::weight));
}

namespace {

using testing::HasSubstr;
using tests::TemporaryFolder;
using Notes = std::vector<StoredNote>;

class OrchestrationFiles : public testing::Test {
 protected:
  OrchestrationStore store() {
    return {folder_.path(), [] { return Date(0); },
            [this](const std::string& notice) { notices_.push_back(notice); }};
  }
  TemporaryFolder folder_;
  std::vector<std::string> notices_;
  const Notes notes_{{"b", Date(86400), 0.5}, {"\u96EA \"a\"\n", Date(1), std::nullopt}};
  const Notes none_{};
};

TEST_F(OrchestrationFiles, ComeBackAsTheyWere) {
  ASSERT_TRUE(store().save(notes_, "notes.json"));
  EXPECT_EQ(store().load("notes.json", none_), notes_);
  ASSERT_TRUE(store().save(notes_[0], "contexts/one.json"));
  EXPECT_EQ(store().load("contexts/one.json", StoredNote{}), notes_[0]);
  EXPECT_EQ(store().url("contexts/one.json"), folder_ / "Orchestration/contexts/one.json");
}

TEST_F(OrchestrationFiles, AreReadableByPeopleAndSorted) {
  ASSERT_TRUE(store().save(notes_[0], "note.json"));
  EXPECT_EQ(TemporaryFolder::contentOf(folder_ / "Orchestration/note.json"),
            "{\n  \"createdAt\": \"2001-01-02T00:00:00Z\",\n  \"text\": \"b\",\n  \"weight\": "
            "0.5\n}");
}

TEST_F(OrchestrationFiles, AreForTheirOwnerOnly) {
  const std::string orchestration = folder_.folder("Orchestration");
  ASSERT_EQ(chmod(orchestration.c_str(), 0755), 0);
  ASSERT_EQ(chmod(folder_.file("Orchestration/notes.json", "[]").c_str(), 0644), 0);
  const mode_t mask = umask(0);
  ASSERT_TRUE(store().save(notes_, "notes.json"));
  ASSERT_TRUE(store().save(notes_, "contexts/notes.json"));
  umask(mask);
  EXPECT_EQ(TemporaryFolder::modeOf(orchestration), 0700u);
  EXPECT_EQ(TemporaryFolder::modeOf(orchestration + "/notes.json"), 0600u);
  EXPECT_EQ(TemporaryFolder::modeOf(orchestration + "/contexts"), 0700u);
  EXPECT_EQ(TemporaryFolder::modeOf(orchestration + "/contexts/notes.json"), 0600u);
}

TEST_F(OrchestrationFiles, MissingIsTheDefaultAndNotWorthANotice) {
  EXPECT_EQ(store().load("notes.json", notes_), notes_);
  EXPECT_TRUE(store().save(none_, "notes.json"));
  EXPECT_THAT(notices_, testing::IsEmpty());
}

TEST_F(OrchestrationFiles, WhatCannotBeReadIsKeptWhenItIsReplaced) {
  for (const std::string content :
       {"", "[{]", "\xFF\xFE", "{\"text\": \"no list\"}", "[{\"text\": 1}]",
        "[{\"text\": \"x\", \"createdAt\": \"yesterday\"}]"}) {
    const TemporaryFolder folder;
    folder.file("Orchestration/notes.json", content);
    std::vector<std::string> notices;
    OrchestrationStore store(
        folder.path(), [] { return Date(0); },
        [&](const std::string& notice) { notices.push_back(notice); });
    EXPECT_EQ(store.load("notes.json", notes_), notes_) << content;
    EXPECT_EQ(folder.names("Orchestration").size(), 1u) << "not before it is replaced";
    ASSERT_TRUE(store.save(notes_, "notes.json")) << content;
    const std::string aside =
        folder / "Orchestration/notes that could not be read 2001-01-01 00.00.00Z.json";
    EXPECT_EQ(TemporaryFolder::contentOf(aside), content);
    EXPECT_EQ(store.load("notes.json", none_), notes_);
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_THAT(notices[0], HasSubstr(aside));
    ASSERT_TRUE(store.save(none_, "notes.json"));
    EXPECT_EQ(folder.names("Orchestration").size(), 2u) << "only the unreadable one is kept";
  }
}

TEST_F(OrchestrationFiles, AFolderInTheWayIsKeptToo) {
  folder_.file("Orchestration/notes.json/inside", "x");
  auto files = store();
  EXPECT_EQ(files.load("notes.json", notes_), notes_);
  ASSERT_TRUE(files.save(none_, "notes.json"));
  EXPECT_THAT(notices_.at(0), HasSubstr("notes that could not be read"));
}

TEST_F(OrchestrationFiles, AreNotReplacedWhenTheUnreadableOneCannotBeKept) {
  tests::expectOnSmallVolume(folder_.path(), "1m", [&] {
    folder_.file("Orchestration/notes.json", "[{");
    if (!tests::makeReadOnly(folder_.path())) return 1;
    auto files = store();
    if (files.load("notes.json", notes_) != notes_ || files.save(none_, "notes.json")) return 2;
    if (mount(nullptr, folder_.path().c_str(), nullptr, MS_REMOUNT, nullptr) != 0) return 3;
    if (!files.save(none_, "notes.json")) return 4;
    return folder_.names("Orchestration").size() == 2 && notices_.size() == 1 ? 0 : 5;
  });
}

}  // namespace
}  // namespace vantrell
