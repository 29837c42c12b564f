#include "shell/terminal/task_lookup.h"

#include <gtest/gtest.h>

#include "support/task_records.h"

namespace vantrell::shell {
namespace {

using tests::projectWith;
using tests::taskWithID;

class TaskLookup : public ::testing::Test {
 protected:
  TaskLookup() {
    workspaces[0].id = *Uuid::parse("00000000-2222-4222-8222-222222222222");
    workspaces[1].id = *Uuid::parse("11111111-2222-4222-8222-222222222222");
    workspaces[2].id = *Uuid::parse("ABCDEF00-2222-4222-8222-222222222222");
    workspaces[3].id = *Uuid::parse("ABCDEF11-2222-4222-8222-222222222222");
  }
  /// The title of what is found, or the error.
  std::string task(std::string_view named) {
    const auto found = findTask(workspaces, named);
    return found ? threadOf(workspaces, *found).title : "error: " + found.error().text;
  }
  std::string project(std::string_view named) {
    const auto found = findProject(workspaces, named, "/");
    return found ? workspaceOf(workspaces, *found).path : "error: " + found.error().text;
  }

  std::vector<Workspace> workspaces = {
      projectWith("/state/General Chats", {taskWithID("0A0A0A0A", "chat")}),
      projectWith("/home/ada/web",
                  {taskWithID("3F2A91C0", "first"), taskWithID("3F2B0000", "second")}),
      projectWith("/home/ada/Größe", {}),
      projectWith("/home/bob/web", {taskWithID("12345678", "third")}),
  };
};

TEST_F(TaskLookup, AnyBeginningOfAnIDThatNoOtherTaskHasNamesIt) {
  const std::vector<std::pair<std::string_view, std::string_view>> cases = {
      {"0", "chat"},
      {"1", "third"},
      {"123", "third"},
      {"3F2A", "first"},
      {"3f2b", "second"},
      {"3f2a91c0", "first"},
      {"3F2A91C0-1111", "first"},
      {"12345678-1111-4111-8111-111111111111", "third"},
  };
  for (const auto& [named, title] : cases) EXPECT_EQ(task(named), title) << named;
}

TEST_F(TaskLookup, WhatNamesNoTaskOrSeveralSaysWhatToDo) {
  const std::vector<std::pair<std::string_view, std::string_view>> cases = {
      {"3", "This means more than one task 3."},
      {"3F2", "This means more than one task 3F2."},
      {"first", "There is no task first."},
      {"-", "There is no task"},
      {"FFFF", "vantrell tasks --all"},
      {"F\x1b[31m", "There is no task F␛[31m."},
      {"3F2A91C0-1111-4111-8111-1111111111110", "There is no task"},
  };
  for (const auto& [named, part] : cases) EXPECT_TRUE(task(named).contains(part)) << task(named);
}

TEST_F(TaskLookup, SeveralTasksAreEachFoundOnce) {
  const std::vector<std::string> names = {"3F2A", "1234", "3f2a91"};
  const auto found = findTasks(workspaces, names);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->size(), 2U);
  const std::vector<std::string> wrong = {"3F2A", "FFFF"};
  EXPECT_FALSE(findTasks(workspaces, wrong));
}

TEST_F(TaskLookup, ProjectsGoByFolderNameAndID) {
  const std::vector<std::pair<std::string_view, std::string_view>> cases = {
      {"/home/ada/web", "/home/ada/web"},
      {"/home/ada/./x/../web/", "/home/ada/web"},
      {"general chats", "/state/General Chats"},
      {"GRÖSSE", "error: There is no project GRÖSSE"},
      {"grÖße", "/home/ada/Größe"},
      {"abcdef0", "/home/ada/Größe"},
      {"ABCDEF11-2222", "/home/bob/web"},
      {"./nowhere", "error: "},
      {"nowhere", "error: There is no project nowhere"},
      {"abd", "error: There is no project abd"},
      {"a", "error: This means more than one project"},
      {"1", "/home/ada/web"},
      {"web", "error: This means more than one project web"},
      {"abcdef", "error: This means more than one project"},
  };
  for (const auto& [named, path] : cases) {
    EXPECT_TRUE(project(named).starts_with(path)) << named << ": " << project(named);
  }
  EXPECT_TRUE(project("./nowhere").contains("vantrell projects add \"./nowhere\""));
}

}  // namespace
}  // namespace vantrell::shell
