// Updates of the built program to one of another version, over a real HTTPS server, with work under
// way and with a kill at every step.
#include <sys/utsname.h>

#include "shell/program_fixture.h"
#include "support/certificate_authority.h"
#include "support/http_server.h"

namespace vantrell::tests {
namespace {

using namespace std::chrono_literals;

/// A release of the built programs, made by scripts/release. The version after this one is made of
/// the same program, with the text of its version changed.
class Releases {
 public:
  static constexpr std::string_view now = VANTRELL_VERSION, next = "9.9.9";
  static_assert(now.size() == next.size());

  Releases() {
    for (const auto* program :
         {"vantrell", "vantrell-practice-agent", "vantrell-relay", "child-supervisor"}) {
      std::filesystem::copy_file(terminal::programFolder() + "/" + program,
                                 folder.folder("programs") + "/" + program);
    }
    const auto changed = folder / "programs/vantrell";
    make("now");
    shell("strip '" + changed + "'");
    shell("sed -i 's/" + escaped(now) + "/" + std::string(next) + "/g' '" + changed + "'");
    make("next");
  }
  std::string archiveOf(const std::string& which) const {
    return folder / (which + "/vantrell-" + std::string(which == "now" ? now : next) + "-linux-" +
                     machine() + ".tar.gz");
  }
  static void shell(const std::string& command) {
    EXPECT_EQ(std::system((command + " 2>/dev/null").c_str()), 0) << command;
  }

  TemporaryFolder folder;

 private:
  void make(const std::string& which) const {
    shell("'" + std::string(VANTRELL_SOURCES) + "/scripts/release' '" + (folder / "key.pem") +
          "' https://127.0.0.1/appcast.xml '" + (folder / which) + "' '" + (folder / "programs") +
          "'");
  }
  static std::string escaped(std::string_view version) {
    std::string all;
    for (const char each : version) all += each == '.' ? "\\." : std::string(1, each);
    return all;
  }
  static std::string machine() {
    utsname name{};
    ::uname(&name);
    return name.machine;
  }
};

class UpdateProgram : public TerminalProgram {
 protected:
  static void SetUpTestSuite() { releases_ = std::make_unique<Releases>(); }
  static void TearDownTestSuite() { releases_.reset(); }

  UpdateProgram()
      : server_(HttpServer::answering([this](auto& connection, const auto& request) {
                  const bool isFeed = request.target == "/appcast.xml";
                  const auto path = isFeed ? releases_->folder / "next/appcast.xml"
                                           : releases_->archiveOf("next");
                  auto content = TemporaryFolder::contentOf(path);
                  if (isFeed) {
                    const std::string place = "https://127.0.0.1/";
                    content.replace(content.find(place), place.size(), server_.url("/"));
                  }
                  connection.answer(200, content);
                }),
                authority_.server()) {
    home.file("authority.pem", authority_.pem());
    Releases::shell("tar -xzf '" + releases_->archiveOf("now") + "' -C '" + home.folder("opt") +
                    "'");
    EXPECT_EQ(code(installed({"update", "--feed", server_.url("/appcast.xml")})), 0);
  }
  ProcessOptions ofInstalled(std::vector<std::string> words) const {
    auto options = vantrell(std::move(words));
    options.executable = home / "opt/vantrell/bin/vantrell";
    options.environment["SSL_CERT_FILE"] = home / "authority.pem";
    options.standardInput = ProcessOptions::Input::null;
    return options;
  }
  std::shared_ptr<Record> installed(std::vector<std::string> words) {
    return run(ofInstalled(std::move(words)));
  }
  std::string version() { return installed({"--version"})->output; }
  void awaitText(const std::string& text, std::string_view part) {
    EXPECT_TRUE(main_.runUntil([&] { return text.contains(part); })) << text;
  }

  static inline std::unique_ptr<Releases> releases_;
  const CertificateAuthority authority_;
  HttpServer server_;
};

TEST_F(UpdateProgram, GoesToTheNextVersionWithAllThatIsStored) {
  ASSERT_EQ(code(installed({"run", "--practice", "SAY:hello"})), 0);
  const auto id = json::textOr(events(installed({"tasks", "--json"})).at(0), "threadID", "");
  ASSERT_EQ(code(installed({"queue", "add", id, "SAY:later"})), 0);
  EXPECT_TRUE(installed({"update", "--check"})->output.contains("9.9.9 available"));
  EXPECT_FALSE(version().contains("9.9.9"));
  const auto done = installed({"update"});
  EXPECT_EQ(code(done), 0) << done->output << done->error;
  EXPECT_TRUE(done->error.contains("vantrell 9.9.9 has taken the place")) << done->error;
  EXPECT_TRUE(version().contains("9.9.9"));
  EXPECT_TRUE(installed({"show", id})->output.contains("hello"));
  EXPECT_TRUE(installed({"queue", id})->output.contains("SAY:later"));
  EXPECT_FALSE(std::filesystem::exists(home / "opt/.vantrell.update"));
  EXPECT_TRUE(installed({"update"})->output.contains("up to date"));
}

TEST_F(UpdateProgram, AsksWhereWorkIsUnderWayAndServesOnWithTheNewVersion) {
  const auto server = start(ofInstalled({"serve"}));
  awaitText(server->error, "gateway: ");
  const auto work = start(ofInstalled({"run", "--practice", "SAY:begun\nHANG"}));
  awaitText(work->output, "begun");
  const auto later = installed({"update"});
  EXPECT_EQ(code(later), 0);
  EXPECT_TRUE(later->error.contains("--anyway")) << later->error;
  EXPECT_TRUE(later->output.contains("postponed")) << later->output;
  EXPECT_FALSE(version().contains("9.9.9"));
  const auto done = installed({"update", "--anyway"});
  EXPECT_TRUE(done->output.contains("Relaunching")) << done->output << done->error;
  EXPECT_TRUE(finish(work)->output.contains("begun"));
  awaitText(server->error, "has taken the place");
  EXPECT_TRUE(main_.runUntil([&] {
    return server->error.find("gateway: ", server->error.find("has taken")) != std::string::npos;
  }));
  EXPECT_TRUE(version().contains("9.9.9"));
  const auto listed = installed({"tasks", "--json"});
  ASSERT_EQ(code(listed), 0) << listed->error << server->error;
  const auto tasks = events(listed);
  ASSERT_FALSE(tasks.empty()) << listed->output << listed->error << server->error;
  const auto shown = installed({"show", json::textOr(tasks.at(0), "threadID", ""), "--json"});
  EXPECT_TRUE(shown->output.contains("Stopped to install a vantrell update.")) << shown->output;
  ::kill(static_cast<pid_t>(server->process->processID()), SIGTERM);
  EXPECT_EQ(code(finish(server)), 0);
}

TEST_F(UpdateProgram, AVersionThatDoesNotOpenTheStateGoesBack) {
  // The new version finds a state that it cannot open.
  const auto server = start(ofInstalled({"update", "--json"}));
  awaitText(server->output, "Relaunching");
  std::filesystem::remove_all(home / "config");
  home.file("config", "no folder");
  finish(server);
  EXPECT_NE(code(server), 0);
  EXPECT_TRUE(server->error.contains("is in its place again")) << server->error;
  EXPECT_FALSE(version().contains("9.9.9"));
}

TEST_F(UpdateProgram, AKillAtAnyStepLosesNothing) {
  for (const auto* step :
       {"checking", "downloading", "extracting", "Preparing", "installing", "Relaunching"}) {
    SCOPED_TRACE(step);
    if (version().contains("9.9.9")) {
      Releases::shell("rm -rf '" + home.path() + "/opt' && mkdir '" + home.path() +
                      "/opt' && tar -xzf '" + releases_->archiveOf("now") + "' -C '" + home.path() +
                      "/opt'");
    }
    const auto killed = start(ofInstalled({"update", "--json"}));
    awaitText(killed->output, step);
    ::kill(static_cast<pid_t>(killed->process->processID()), SIGKILL);
    finish(killed);
    EXPECT_EQ(code(installed({"--version"})), 0) << "the program that is there starts";
    EXPECT_EQ(code(installed({"tasks"})), 0);
    const auto done = installed({"update"});
    EXPECT_EQ(code(done), 0) << done->output << done->error;
    EXPECT_TRUE(version().contains("9.9.9"));
  }
}

}  // namespace
}  // namespace vantrell::tests
