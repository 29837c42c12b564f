// Commands of other processes: the calling side in a thread of this one, over a real socket.
#include "app/control/command_server.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "platform/queues/manual_main_queue.h"
#include "platform/sockets/local_socket.h"
#include "records/values/application.h"
#include "support/environment.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

using namespace std::string_view_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Pair;

HandedCommand commandOf(std::vector<std::string> arguments) {
  return {.version = std::string(applicationVersion),
          .folder = "/work here",
          .arguments = std::move(arguments),
          .environment = {{"TERM", "dumb"}, {"EMPTY", ""}}};
}

class CommandServerTest : public ::testing::Test {
 protected:
  CommandServerTest() { environment.set("XDG_RUNTIME_DIR", folder.path()); }

  void listen() {
    auto listening = CommandServer::listen(main, folder.path(),
                                           [this](std::shared_ptr<IncomingCommand> incoming) {
                                             commands.push_back(std::move(incoming));
                                           });
    ASSERT_TRUE(listening) << listening.error();
    server = *std::move(listening);
  }

  /// The calling process.
  std::jthread call(const HandedCommand& command) {
    return std::jthread([this, command] {
      end = handOver(::getpid(), folder.path(), command,
                     [this](std::string_view text) { complaint = text; });
      main.post([this] { isOver = true; });
    });
  }
  void waitForCommand() {
    ASSERT_TRUE(main.runUntil([this] { return !commands.empty(); }));
  }
  void waitForEnd() {
    ASSERT_TRUE(main.runUntil([this] { return isOver; }));
  }

  TemporaryFolder folder;
  Environment environment;
  ManualMainQueue main;
  std::vector<std::shared_ptr<IncomingCommand>> commands;
  std::unique_ptr<CommandServer> server;
  std::optional<HandedCommandEnd> end;
  std::string complaint;
  bool isOver = false;
};

TEST_F(CommandServerTest, CarriesACommandWithItsStreamsAndAnswersItsStatus) {
  listen();
  const std::string large(3 << 20, 'x');  // no message of a socket would hold it
  const auto caller = call(commandOf({"run", "", large, "a\xff\n b"}));
  waitForCommand();
  const auto& incoming = *commands.front();
  EXPECT_THAT(incoming.command.arguments, ElementsAre("run", "", large, "a\xff\n b"));
  EXPECT_EQ(incoming.command.folder, "/work here");
  EXPECT_THAT(incoming.command.environment, ElementsAre(Pair("EMPTY", ""), Pair("TERM", "dumb")));
  EXPECT_EQ(incoming.caller, ::getpid());
  struct stat ours{}, theirs{};
  ASSERT_EQ(::fstat(STDOUT_FILENO, &ours), 0);
  ASSERT_EQ(::fstat(incoming.output.get(), &theirs), 0);
  EXPECT_EQ(ours.st_ino, theirs.st_ino);
  commands.front()->end(7);
  commands.front()->end(0);
  waitForEnd();
  EXPECT_EQ(end, HandedCommandEnd{7});
  EXPECT_EQ(complaint, "");
}

TEST_F(CommandServerTest, SocketIsTheUsersOwnAndReplacesOneOfADeadProcess) {
  EXPECT_EQ(handOver(::getpid(), folder.path(), commandOf({}), nullptr), std::nullopt);
  const auto dead = folder.folder("vantrell") + "/2147483647.sock";
  const auto path = folder.path() + "/vantrell/" + std::to_string(::getpid()) + ".sock";
  for (const auto& each : {dead, path}) {
    ASSERT_EQ(::close(::open(each.c_str(), O_CREAT | O_WRONLY, 0666)), 0);
  }
  listen();
  EXPECT_EQ(controlSocketOf(::getpid(), folder.path()), path);
  struct stat socket{}, itsFolder{}, record{};
  ASSERT_EQ(::stat(path.c_str(), &socket), 0);
  ASSERT_EQ(::stat((folder.path() + "/vantrell").c_str(), &itsFolder), 0);
  ASSERT_EQ(::stat(controlRecord(folder.path()).c_str(), &record), 0);
  EXPECT_EQ(socket.st_mode & 0777, 0600u);
  EXPECT_EQ(itsFolder.st_mode & 0777, 0700u);
  EXPECT_EQ(record.st_mode & 0777, 0600u);
  EXPECT_NE(::stat(dead.c_str(), &itsFolder), 0);
  server.reset();
  EXPECT_NE(::stat(path.c_str(), &socket), 0);
  EXPECT_EQ(controlSocketOf(::getpid(), folder.path()), std::nullopt);
}

TEST_F(CommandServerTest, ListensAgainWhereItsFolderHasGoneAndFindsItFromAnotherSession) {
  const auto runtime = folder.folder("runtime");
  environment.set("XDG_RUNTIME_DIR", runtime);
  listen();
  const auto first = call(commandOf({"run"}));
  waitForCommand();
  ASSERT_GT(std::filesystem::remove_all(runtime), 0u);  // the user has logged out
  main.advance(controlSocketCheck);
  environment.set("XDG_RUNTIME_DIR", "/nowhere");
  const auto second = call(commandOf({"tasks"}));
  ASSERT_TRUE(main.runUntil([&] { return commands.size() == 2; }));
  commands[0]->end(1);
  waitForEnd();
  isOver = false;
  commands[1]->end(1);
  waitForEnd();
}

TEST_F(CommandServerTest, RefusesAnotherVersionInWords) {
  listen();
  auto command = commandOf({"tasks"});
  command.version = "0.0.9";
  const auto caller = call(command);
  waitForEnd();
  EXPECT_EQ(end, HandedCommandEnd{1});
  EXPECT_THAT(complaint, HasSubstr("and this is version 0.0.9. Nothing was changed"));
  EXPECT_TRUE(commands.empty());
}

TEST_F(CommandServerTest, CallerIsToldThatTheOwnerHasGone) {
  listen();
  const auto caller = call(commandOf({"run"}));
  waitForCommand();
  commands.clear();
  server.reset();
  waitForEnd();
  EXPECT_EQ(end, HandedCommandEnd{1});
  EXPECT_THAT(complaint, HasSubstr("has ended before it"));
}

TEST_F(CommandServerTest, SignalsReachTheCommandElseTheyEndItForItsCaller) {
  listen();
  const auto path = controlSocketOf(::getpid(), folder.path());
  std::vector<int> heard;
  for (const bool isWatched : {true, false}) {
    commands.clear();
    auto socket = localSocket::connect(*path);
    ASSERT_TRUE(socket);
    const auto file = localSocket::memoryFile(commandOf({"run"}).encoded());
    const std::array streams{file->get(), STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
    ASSERT_TRUE(localSocket::send(socket->get(), "C", streams));
    waitForCommand();
    const auto watch =
        isWatched ? commands.front()->watchSignals([&](int signal) { heard.push_back(signal); })
                  : nullptr;
    ASSERT_TRUE(localSocket::send(socket->get(), "S2"));
    commands.front()->onUnwatchedSignal = [&](int signal) {
      commands.front()->endBySignal(signal);
    };
    if (isWatched) {
      ASSERT_TRUE(main.runUntil([&] { return heard.size() == 1; }));
      socket.reset();  // as a terminal that is closed
      ASSERT_TRUE(main.runUntil([&] { return heard.size() == 2; }));
    } else {
      main.runUntil([&] { return false; }, std::chrono::milliseconds(0));
      std::optional<localSocket::Message> answer;
      std::jthread reader([&] {
        answer = localSocket::receive(socket->get());
        main.post([&] { isOver = true; });
      });
      waitForEnd();
      ASSERT_TRUE(answer);
      EXPECT_EQ(answer->bytes, "K2");
    }
  }
  EXPECT_THAT(heard, ElementsAre(SIGINT, SIGHUP));
}

TEST_F(CommandServerTest, DamagedCommandsAreRefused) {
  for (const auto bytes : {""sv, "1\0"sv, "1\0/\0x\0"sv, "1\0/\0002\0a\0"sv, "1\0/\0-1\0"sv,
                           "1\0/\0000\0TERM\0"sv, "1\0/\0000"sv}) {
    EXPECT_FALSE(HandedCommand::decoded(bytes)) << bytes;
  }
  EXPECT_TRUE(HandedCommand::decoded("1\0/\0001\0tasks\0A=b\0"sv));
}

}  // namespace
}  // namespace vantrell::tests
