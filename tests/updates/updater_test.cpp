// The feed, and updates of a small installation over a real HTTPS server: what is well, and every
// way in which a server or an archive is not.
#include "updates/updater.h"

#include <sys/resource.h>

#include "platform/crypto/crypto.h"
#include "support/http_client_fixture.h"
#include "support/http_server.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {
namespace {

TEST(Appcast, ComparesVersionsAsTheFeedMeansThem) {
  const char* const inOrder[] = {"0.9",
                                 "1.0a1",
                                 "1.0b1",
                                 "1.0b2",
                                 "1.0b10",
                                 "1.0rc1",
                                 "1.0",
                                 "1.0.1",
                                 "1.0.10",
                                 "1.10",
                                 "2.0-dev",
                                 "2.0",
                                 "10",
                                 "99999999999999999999999999",
                                 "100000000000000000000000000"};
  for (std::size_t i = 0; i < std::size(inOrder); ++i) {
    for (std::size_t j = 0; j < std::size(inOrder); ++j) {
      const int expected = i < j ? -1 : i > j ? 1 : 0;
      EXPECT_EQ(compareVersions(inOrder[i], inOrder[j]), expected) << inOrder[i] << inOrder[j];
    }
  }
  EXPECT_EQ(compareVersions("1.02", "1.2"), 0);
  EXPECT_EQ(compareVersions("1-0", "1.0"), 0);
}

std::string feedWith(const std::string& items) {
  return "<?xml version=\"1.0\"?><rss version=\"2.0\" xmlns:s=\"urn:s\"><channel>" + items +
         "</channel></rss>";
}

TEST(Appcast, ReadsOnlyWhatCanBeInstalled) {
  const auto signature = crypto::base64(std::vector<std::uint8_t>(64, 7));
  const auto enclosure = [&](std::string url, std::string more = "") {
    return "<enclosure url=\"" + url + "\" length=\"12\" s:edSignature=\"" + signature + "\" " +
           more + "/>";
  };
  const auto item = [](const std::string& inside) { return "<item>" + inside + "</item>"; };
  const std::string good = "https://a.example/a.tar.gz";
  const struct {
    std::string document;
    std::string newest;  // for version 1.0; "-": none; "!": the feed cannot be read
  } cases[] = {
      {feedWith(item("<s:version>1.1</s:version>" + enclosure(good))), "1.1"},
      {feedWith(item(enclosure(good, "s:version=\"1.2\" os=\"linux\""))), "1.2"},
      {feedWith(item("<version>1.1</version>" + enclosure(good)) +
                item("<version>1.3</version>" + enclosure(good)) +
                item("<version>1.2</version>" + enclosure(good))),
       "1.3"},
      {feedWith(item("<version>1.1</version><informationalUpdate/>")), "1.1"},
      {feedWith(""), "-"},
      {feedWith(item("<version>1.0</version>" + enclosure(good))), "-"},
      {feedWith(item("<version>0.9</version>" + enclosure(good))), "-"},
      {feedWith(item("<version>1.1</version>")), "-"},
      {feedWith(item(enclosure(good))), "-"},
      {feedWith(item("<version>2</version>" + enclosure("http://a.example/a"))), "-"},
      {feedWith(item("<version>2</version>" + enclosure(good, "os=\"windows\""))), "-"},
      {feedWith(item("<version>2</version><channel>beta</channel>" + enclosure(good))), "-"},
      {feedWith(item("<version>2</version><enclosure url=\"" + good + "\"/>")), "-"},
      {"", "!"},
      {"<html/>", "!"},
      {"<rss><channel><item></channel></rss>", "!"},
      {"<!DOCTYPE r [<!ENTITY a \"aaaa\"><!ENTITY b \"&a;&a;\">]>" + feedWith("<x>&b;</x>"), "!"},
      {std::string(100'000, '<'), "!"},
      {feedWith([] {
         std::string deep;
         for (int i = 0; i < 100'000; ++i) deep += "<d>";
         return deep;
       }()),
       "!"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.document.substr(0, 300));
    const auto items = parseAppcast(each.document);
    EXPECT_EQ(items.has_value(), each.newest != "!");
    if (!items) continue;
    const auto newest = newestUpdate(*items, "1.0");
    EXPECT_EQ(newest ? newest->version : "-", each.newest);
  }
}

/// A publisher's key.
class Publisher {
 public:
  std::string publicKey() const {
    std::string key(32, '\0');
    std::size_t size = key.size();
    EVP_PKEY_get_raw_public_key(key_.get(), reinterpret_cast<unsigned char*>(key.data()), &size);
    return key;
  }
  std::string sign(std::string_view message) const {
    std::string signature(64, '\0');
    std::size_t size = signature.size();
    const std::unique_ptr<EVP_MD_CTX, Release<EVP_MD_CTX_free>> context(EVP_MD_CTX_new());
    EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key_.get());
    EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                   reinterpret_cast<const unsigned char*>(message.data()), message.size());
    return signature;
  }

 private:
  OwnedKey key_{EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519")};
};

std::string base64Of(std::string_view text) {
  return crypto::base64({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

/// Answers every question with yes, and notes what it is told.
struct NotingDriver final : UpdateDriver {
  void checkingStarted() override { steps.emplace_back("checking"); }
  void updateFound(const AppcastItem&, UpdateReply reply) override {
    steps.emplace_back("found");
    reply(UpdateChoice::install);
  }
  void noUpdateFound(const std::string&) override { end("none"); }
  void updaterFailed(const std::string& error) override {
    problem = error;
    end("failed");
  }
  void downloadStarted() override { steps.emplace_back("download"); }
  void expectedDownload(std::uint64_t bytes) override { expected = bytes; }
  void receivedDownloadData(std::uint64_t bytes) override { received += bytes; }
  void extractionStarted() override { steps.emplace_back("extraction"); }
  void extractionProgress(double part) override { progress = part; }
  void readyToInstall(UpdateReply reply) override {
    steps.emplace_back("ready");
    reply(answer);
    if (answer == UpdateChoice::dismiss) end("dismissed");
  }
  void installing(bool applicationTerminated) override {
    if (!applicationTerminated) end("installed");
  }
  void installationFinished() override {}
  void end(std::string how) { ended = std::move(how); }

  UpdateChoice answer = UpdateChoice::install;
  std::vector<std::string> steps;
  std::string ended, problem;
  std::uint64_t expected = 0, received = 0;
  double progress = 0;
};

class UpdateOverHttps : public HttpClientFixture {
 protected:
  UpdateOverHttps()
      : server_(HttpServer::answering([this](auto& connection, const auto& request) {
                  if (request.target == "/appcast.xml") {
                    connection.answer(200, feed_);
                  } else {
                    serveArchive(connection, request);
                  }
                }),
                authority_.server()) {
    serveArchive = [this](ServerConnection& connection, const ReceivedRequest&) {
      connection.answer(200, archive_);
    };
    makeRelease(folder_.path(), "1.0");
  }

  std::string releaseFile(const std::string& version) const {
    return "{\"version\":\"" + version + "\",\"publicKey\":\"" + base64Of(publisher_.publicKey()) +
           "\"}";
  }
  void makeRelease(const std::string& where, const std::string& version,
                   const std::string& script = "") const {
    const auto write = [&](const std::string& name, const std::string& content) {
      const auto path = where + "/vantrell/" + name;
      std::filesystem::create_directories(std::filesystem::path(path).parent_path());
      std::ofstream(path) << content;
    };
    write("release.json", releaseFile(version));
    write("bin/vantrell", script.empty() ? "#!/bin/sh\necho vantrell " + version + "\n" : script);
    std::filesystem::permissions(where + "/vantrell/bin/vantrell",
                                 std::filesystem::perms::owner_all);
  }
  /// An archive of a folder, with tar's own options in front.
  std::string packed(const std::string& folder, const std::string& what) const {
    const auto path = folder_ / "archive.tar.gz";
    const auto command = "tar -C '" + folder + "' -czf '" + path + "' " + what;
    EXPECT_EQ(std::system(command.c_str()), 0) << command;
    return TemporaryFolder::contentOf(path);
  }
  std::string release(const std::string& version, const std::string& script = "") const {
    const TemporaryFolder made;
    makeRelease(made.path(), version, script);
    return packed(made.path(), "vantrell");
  }
  /// Serves the archive as this version, signed.
  void offer(const std::string& archive, const std::string& version) {
    offer(archive, version, publisher_.sign(archive), archive.size());
  }
  void offer(const std::string& archive, const std::string& version, const std::string& signature,
             std::size_t length) {
    archive_ = archive;
    feed_ = feedWith("<item><version>" + version + "</version><enclosure url=\"" +
                     server_.url("/archive") + "\" length=\"" + std::to_string(length) +
                     "\" edSignature=\"" + base64Of(signature) + "\"/></item>");
  }
  /// Runs an update to its end.
  void update() {
    driver_ = std::make_shared<NotingDriver>();
    driver_->answer = answer_;
    HttpClient http(loop_, {.extraAuthorities = authority_.pem()});
    const auto updater = std::make_shared<Updater>(
        Updater::Dependencies{.main = loop_,
                              .pool = pool_,
                              .http = http,
                              .installation = Installation::of(folder_ / "vantrell/bin"),
                              .feedURL = [this] { return server_.url("/appcast.xml"); }},
        driver_);
    ASSERT_TRUE(updater->start());
    updater->checkForUpdates();
    EXPECT_FALSE(updater->canCheckForUpdates());
    runUntil([&] { return !driver_->ended.empty(); });
  }
  std::string installedVersion() const {
    const auto found = Installation::of(folder_ / "vantrell/bin");
    return found ? found->release.version : found.error();
  }

  const CertificateAuthority authority_;
  const Publisher publisher_;
  const TemporaryFolder folder_;
  BackgroundPool pool_;
  std::string feed_, archive_;
  UpdateChoice answer_ = UpdateChoice::install;
  std::function<void(ServerConnection&, const ReceivedRequest&)> serveArchive;
  HttpServer server_;
  std::shared_ptr<NotingDriver> driver_;
};

TEST_F(UpdateOverHttps, TakesThePlaceAndKeepsTheVersionBefore) {
  offer(release("1.1"), "1.1");
  update();
  EXPECT_EQ(driver_->ended, "installed") << driver_->problem;
  EXPECT_EQ(driver_->steps,
            (std::vector<std::string>{"checking", "found", "download", "extraction", "ready"}));
  EXPECT_EQ(driver_->expected, archive_.size());
  EXPECT_EQ(driver_->received, archive_.size());
  EXPECT_EQ(driver_->progress, 1);
  EXPECT_EQ(installedVersion(), "1.1");
  const auto now = *Installation::of(folder_ / "vantrell/bin");
  EXPECT_TRUE(UpdateInstaller::goBack(now));
  EXPECT_EQ(installedVersion(), "1.0");
  EXPECT_TRUE(UpdateInstaller::goBack(now));
  EXPECT_TRUE(UpdateInstaller::forgetPrevious(now));
  EXPECT_EQ(installedVersion(), "1.1");
  EXPECT_FALSE(std::filesystem::exists(now.workFolder()));
  update();
  EXPECT_EQ(driver_->ended, "none");
}

TEST_F(UpdateOverHttps, NothingChangesWhereAReleaseIsNotAsItShouldBe) {
  const auto good = release("1.1");
  const TemporaryFolder other;
  makeRelease(other.path(), "1.1");
  std::filesystem::create_symlink("/etc", other / "vantrell/link");
  const auto withLink = packed(other.path(), "vantrell");
  std::filesystem::remove(other / "vantrell/link");
  std::filesystem::create_hard_link(other / "vantrell/release.json", other / "vantrell/second");
  const auto withHardLink = packed(other.path(), "vantrell");
  std::filesystem::remove(other / "vantrell/second");
  const auto outside = packed(other.path(), "--transform 's,release.json,../../../x,' vantrell");
  const auto absolute =
      packed(other.path(), "-P --transform 's,^vantrell/release.json,/tmp/vantrell-x,' vantrell");
  const auto twice = packed(other.path(), "--hard-dereference vantrell vantrell/release.json");
  ::mkfifo((other / "vantrell/pipe").c_str(), 0600);
  const auto withPipe = packed(other.path(), "vantrell");
  auto changed = good;
  changed[changed.size() / 2] = static_cast<char>(changed[changed.size() / 2] ^ 1);
  const Publisher stranger;
  const auto as = [&](const std::string& archive, const std::string& version = "1.1") {
    return [&, archive, version] { offer(archive, version); };
  };
  const struct {
    const char* what;
    std::function<void()> offers;
    std::string problem;  // part of it; empty: nothing newer is found
  } cases[] = {
      {"another key", [&] { offer(good, "1.1", stranger.sign(good), good.size()); }, "not signed"},
      {"a changed archive", [&] { offer(changed, "1.1", publisher_.sign(good), good.size()); },
       "not signed"},
      {"too long", [&] { offer(good + "x", "1.1", publisher_.sign(good), good.size()); },
       "has more than"},
      {"too short", [&] { offer(good, "1.1", publisher_.sign(good), good.size() + 5); },
       "and not the"},
      {"a downgrade", as(release("0.9"), "0.9"), ""},
      {"an old archive under a new name", as(release("0.9"), "2.0"), "holds version 0.9"},
      {"no archive", as("not an archive"), "cannot be read"},
      {"an archive cut off", as(good.substr(0, good.size() / 2)), "cannot be read"},
      {"no program", as(packed(other.path(), "vantrell/release.json")), "does not run"},
      {"a program that fails", as(release("1.1", "#!/bin/sh\nexit 3\n")), "does not run"},
      {"a program of another version", as(release("1.1", "#!/bin/sh\necho 7\n")), "does not run"},
      {"no release", as(packed(other.path(), "vantrell/bin/vantrell")), "release.json"},
      {"a link", as(withLink), "is a link"},
      {"a hard link", as(withHardLink), "is a link"},
      {"a name with ..", as(outside), "outside its folder"},
      {"an absolute name", as(absolute), "outside its folder"},
      {"the same name twice", as(twice), "comes twice"},
      {"a pipe", as(withPipe), "neither a file nor a folder"},
      {"a feed that is none", [&] { feed_ = "<html/>"; }, "feed cannot be read"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.what);
    each.offers();
    update();
    EXPECT_EQ(driver_->ended, each.problem.empty() ? "none" : "failed");
    EXPECT_TRUE(driver_->problem.contains(each.problem)) << driver_->problem;
    EXPECT_EQ(installedVersion(), "1.0");
  }
  EXPECT_FALSE(std::filesystem::exists("/tmp/vantrell-x"));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "x"));
  offer(good, "1.1");
  update();
  EXPECT_EQ(driver_->ended, "installed") << "what was refused stands in nobody's way";
}

TEST_F(UpdateOverHttps, GoesOnWithWhatIsThereOfAnArchive) {
  const auto good = release("1.1");
  std::vector<std::string> ranges;
  const auto cutOff = [&](ServerConnection& connection, const ReceivedRequest& request) {
    const auto range = request.headers.find("range");
    ranges.push_back(range == request.headers.end() ? "" : range->second);
    const std::size_t from = ranges.back().empty() ? 0 : std::stoul(ranges.back().substr(6));
    const auto head = from == 0 ? std::string("HTTP/1.1 200 OK\r\n")
                                : "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " +
                                      std::to_string(from) + "-\r\n";
    connection.send(head + "Content-Length: " + std::to_string(good.size() - from) + "\r\n\r\n" +
                    good.substr(from, good.size() / 3));
    ::shutdown(connection.socket(), SHUT_RDWR);
  };
  serveArchive = cutOff;
  offer(good, "1.1");
  update();
  EXPECT_EQ(driver_->ended, "installed") << driver_->problem;
  EXPECT_GE(ranges.size(), 3u);
  EXPECT_EQ(ranges[0], "");
  EXPECT_EQ(ranges[1].substr(0, 6), "bytes=");
}

TEST_F(UpdateOverHttps, AServerThatCannotGoOnBeginsAgain) {
  const auto good = release("1.1");
  offer(good, "1.1");
  const auto part = UpdateInstaller(*Installation::of(folder_ / "vantrell/bin"),
                                    {.version = "1.1",
                                     .archiveURL = server_.url("/archive"),
                                     .signature = publisher_.sign(good)})
                        .downloadPath();
  const struct {
    std::string left;
    std::function<void(ServerConnection&, const ReceivedRequest&)> serve;
  } cases[] = {{std::string(20, 'x'), serveArchive},
               {good.substr(0, 20),
                [&](auto& connection, const auto& request) {
                  if (request.headers.contains("range")) {
                    connection.answer(416, "");
                  } else {
                    connection.answer(200, good);
                  }
                }},
               {good, serveArchive}};
  answer_ = UpdateChoice::dismiss;
  for (const auto& each : cases) {
    serveArchive = each.serve;
    std::filesystem::create_directories(std::filesystem::path(part).parent_path());
    std::ofstream(part, std::ios::binary) << each.left;
    update();
    EXPECT_EQ(driver_->ended, "dismissed") << driver_->problem;
    EXPECT_EQ(installedVersion(), "1.0");
  }
  serveArchive = [](auto& connection, const auto&) { connection.answer(404, "gone"); };
  std::filesystem::remove(part);
  update();
  EXPECT_TRUE(driver_->problem.contains("HTTP 404")) << driver_->problem;
}

TEST_F(UpdateOverHttps, AFullDiskLeavesTheProgramThatWasThere) {
  std::string noise;
  for (int i = 0; i < 40'000; ++i) noise += std::to_string(i * 7919 % 65'521);
  offer(release("1.1", "#!/bin/sh\necho vantrell 1.1\nexit\n" + noise), "1.1");
  const struct {
    rlim_t room;  // bytes that a file may have
  } cases[] = {{archive_.size() / 2}, {archive_.size() + 100}};
  for (const auto& each : cases) {
    rlimit before{};
    ::getrlimit(RLIMIT_FSIZE, &before);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{each.room, before.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &small);
    update();
    ::setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(driver_->ended, "failed");
    EXPECT_TRUE(driver_->problem.contains("Could not write")) << driver_->problem;
    EXPECT_EQ(installedVersion(), "1.0");
  }
  update();
  EXPECT_EQ(driver_->ended, "installed") << driver_->problem;
}

TEST(InstallationPlace, SaysHowToUpdateWhatIsNotARelease) {
  const TemporaryFolder folder;
  folder.folder("build/bin");
  folder.file("build/CMakeCache.txt", "");
  folder.folder("usr/bin");
  folder.folder("broken/bin");
  folder.file("broken/release.json", "{\"version\":\"1\"}");
  const std::pair<std::string, std::string> cases[] = {{"build/bin", "built from source"},
                                                       {"usr/bin", "package manager"},
                                                       {"broken/bin", "public key"}};
  for (const auto& [place, words] : cases) {
    const auto found = Installation::of(folder / place);
    ASSERT_FALSE(found) << place;
    EXPECT_TRUE(found.error().contains(words)) << found.error();
  }
}

}  // namespace
}  // namespace vantrell::tests
