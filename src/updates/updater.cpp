#include "updates/updater.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/files_system.h"
#include "platform/queues/weakly.h"

namespace vantrell {

namespace {

std::optional<std::uint64_t> numberIn(const std::string* text, std::string_view before) {
  if (!text || !text->starts_with(before)) return std::nullopt;
  std::uint64_t number = 0;
  const char* const first = text->data() + before.size();
  const auto [end, error] = std::from_chars(first, text->data() + text->size(), number);
  return error == std::errc() && end != first ? std::optional(number) : std::nullopt;
}

}  // namespace

/// The file that one archive is written to. Opened here; then it belongs to the HTTP client's
/// thread until the request has ended.
struct Updater::Download {
  std::string path;
  Descriptor file;
  std::uint64_t offset = 0;  // bytes that are there
  std::uint64_t most = 0;    // bytes of the whole
  bool hasBegun = false;
  std::string problem;
  std::atomic<std::uint64_t> unreported = 0;
  std::atomic<std::uint64_t> expected = 0;

  /// Where the answer begins: behind what is there already, or at the start.
  bool begin(const HttpResponse& head) {
    hasBegun = true;
    if (head.status == 206) {
      if (numberIn(head.header("Content-Range"), "bytes ") != offset) {
        problem = "The server sent another part of the archive than it was asked for.";
      }
    } else {
      if (::ftruncate(file.get(), 0) != 0) fail("write");
      offset = 0;
    }
    if (::lseek(file.get(), static_cast<off_t>(offset), SEEK_SET) < 0) fail("write");
    if (const auto length = numberIn(head.header("Content-Length"), "")) {
      expected = offset + *length;
      unreported += offset;
    }
    return problem.empty();
  }
  bool take(const HttpResponse& head, std::string_view bytes) {
    if (head.status != 200 && head.status != 206) return true;  // a page about what is wrong
    if (!hasBegun && !begin(head)) return false;
    if (bytes.size() > most - std::min(most, offset)) {
      problem = fmt::format("The archive has more than {} bytes.", most);
    } else if (!files::writeAll(file.get(), bytes)) {
      fail("write");
    }
    if (!problem.empty()) return false;
    offset += bytes.size();
    unreported += bytes.size();
    return true;
  }
  void fail(std::string_view action) { problem = files::failure(action, path).error().description; }
};

Updater::Updater(Dependencies dependencies, std::weak_ptr<UpdateDriver> driver)
    : core_(std::move(dependencies)),
      driver_(std::move(driver)),
      runner_(std::make_shared<ProgramRunner>(core_.main, core_.pool)) {}

std::expected<void, std::string> Updater::start() {
  if (!core_.installation) return std::unexpected(core_.installation.error());
  return {};
}

void Updater::rest() {
  isBusy_ = false;
  item_.reset();
  installer_.reset();
  transfer_.reset();
  lock_.reset();
}

void Updater::fail(const std::string& why) {
  rest();
  tell([&](UpdateDriver& driver) { driver.updaterFailed(why); });
}

void Updater::resetUpdateCycleAfterShortDelay() {
  scheduleCheck(shortDelay);
}

void Updater::scheduleCheck(Duration delay) {
  nextCheck_ = core_.main.after(delay, weakly(this, [](Updater& self) {
                                  self.scheduleCheck(cycle);
                                  if (!self.isBusy_) self.checkForUpdates();
                                }));
}

// ---- the feed -----------------------------------------------------------------------------------

void Updater::checkForUpdates() {
  const auto feed = core_.feedURL();
  if (isBusy_ || !feed) return;
  isBusy_ = true;
  tell([](UpdateDriver& driver) { driver.checkingStarted(); });
  HttpRequest request;
  request.url = *feed;
  request.longestBody = longestFeed;
  request.requestTimeout = std::chrono::seconds(30);
  request.resourceTimeout = std::chrono::minutes(2);
  core_.http.send(std::move(request),
                  weakly(this, [](Updater& self, const auto& answer) { self.take(answer); }));
}

void Updater::take(const std::expected<HttpResponse, HttpError>& feed) {
  if (!feed) return fail(feed.error().description);
  if (!feed->isSuccess()) {
    return fail(
        fmt::format("The update feed cannot be read: the server answered HTTP {}.", feed->status));
  }
  const auto items = parseAppcast(feed->body);
  if (!items) return fail(items.error());
  auto newest = newestUpdate(*items, core_.installation->release.version);
  if (!newest) {
    rest();
    return tell([](UpdateDriver& driver) { driver.noUpdateFound(""); });
  }
  item_ = std::move(newest);
  tell([&](UpdateDriver& driver) {
    driver.updateFound(*item_, weakly(this, [](Updater& self, UpdateChoice choice) {
      if (!self.item_ || self.installer_) return;  // it was answered before
      if (choice == UpdateChoice::install) return self.beginDownload();
      self.rest();
    }));
  });
}

// ---- the archive --------------------------------------------------------------------------------

void Updater::beginDownload() {
  installer_ = std::make_shared<UpdateInstaller>(*core_.installation, *item_);
  attempts_ = 0;
  tell([](UpdateDriver& driver) { driver.downloadStarted(); });
  inBackground([](const UpdateInstaller& installer) { return installer.makeFolder(); },
               [](Updater& self) {
                 auto locked = files::LockFile::acquire(self.core_.installation->workFolder() +
                                                        "/" + UpdateInstaller::lockName);
                 if (!locked) {
                   return self.fail(locked.error().error
                                        ? locked.error().error->description
                                        : "Another vantrell updates itself at this moment.");
                 }
                 self.lock_ = std::move(*locked);
                 self.openDownload();
               });
}

void Updater::openDownload() {
  const auto download = std::make_shared<Download>();
  download->most = item_->length != 0 ? item_->length : UpdateInstaller::largestArchive;
  inBackground(
      [download](const UpdateInstaller& installer) -> Outcome {
        download->path = installer.downloadPath();
        download->file = Descriptor(
            ::open(download->path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
        struct stat info{};
        if (!download->file || ::fstat(download->file.get(), &info) != 0) download->fail("open");
        if (!download->problem.empty()) return std::unexpected(download->problem);
        download->offset = static_cast<std::uint64_t>(info.st_size);
        return {};
      },
      [download](Updater& self) {
        // Nothing is missing, or what is there is of no use, which the check will say.
        if (self.item_->length != 0 && download->offset >= self.item_->length) {
          return self.extract();
        }
        self.request(download);
      });
}

void Updater::request(const std::shared_ptr<Download>& download) {
  ++attempts_;
  HttpRequest request;
  request.url = item_->archiveURL;
  request.requestTimeout = std::chrono::minutes(1);
  request.resourceTimeout = std::chrono::hours(12);
  if (download->offset > 0) {
    request.headers.push_back({"Range", fmt::format("bytes={}-", download->offset)});
  }
  auto report = weakly(this, [download](Updater& self) {
    const auto expected = download->expected.exchange(0);
    const auto bytes = download->unreported.exchange(0);
    self.tell([&](UpdateDriver& driver) {
      if (expected != 0) driver.expectedDownload(expected);
      if (bytes != 0) driver.receivedDownloadData(bytes);
    });
  });
  request.takeBody = [download, report, &main = core_.main](const HttpResponse& head,
                                                            std::string_view bytes) {
    const bool isReported = download->unreported == 0;
    if (!download->take(head, bytes)) return false;
    // One report is on its way at a time, however fast the bytes come.
    if (isReported && download->unreported != 0) main.post(report);
    return true;
  };
  transfer_ = core_.http.send(std::move(request),
                              weakly(this, [download](Updater& self, const auto& answer) {
                                self.downloadEnded(download, answer);
                              }));
}

void Updater::downloadEnded(const std::shared_ptr<Download>& download,
                            const std::expected<HttpResponse, HttpError>& answer) {
  transfer_.reset();
  if (!download->problem.empty()) return fail(download->problem);
  if (!answer) {
    const auto kind = answer.error().kind;
    const bool isLost =
        kind == HttpError::Kind::connectionLost || kind == HttpError::Kind::timedOut;
    if (isLost && attempts_ < mostAttempts) return openDownload();
    return fail("The archive could not be downloaded. " + answer.error().description);
  }
  if (answer->status == 200 || answer->status == 206) return extract();
  if (answer->status == 416 && attempts_ < mostAttempts) {  // more is there than the server has
    return inBackground(
        [](const UpdateInstaller& installer) -> Outcome {
          const auto removed = files::remove(installer.downloadPath());
          return removed ? Outcome() : std::unexpected(removed.error().description);
        },
        [](Updater& self) { self.openDownload(); });
  }
  fail(fmt::format("The archive could not be downloaded: the server answered HTTP {}.",
                   answer->status));
}

void Updater::cancelDownload() {
  if (transfer_) transfer_->cancel();
}

// ---- installing ---------------------------------------------------------------------------------

void Updater::extract() {
  tell([](UpdateDriver& driver) { driver.extractionStarted(); });
  auto report = weakly(this, [](Updater& self, double part) {
    self.tell([&](UpdateDriver& driver) { driver.extractionProgress(part); });
  });
  inBackground(
      [report, &main = core_.main](const UpdateInstaller& installer) {
        double told = -1;
        return installer.open([&](double part) {
          if (part < told + 0.01) return;
          told = part;
          main.post([tells = report, part]() mutable { tells(part); });
        });
      },
      [](Updater& self) { self.askOpened(); });
}

void Updater::askOpened() {
  runner_->run(
      {.options =
           [program = installer_->openedProgram()] {
             ProcessOptions options;
             options.executable = program;
             options.arguments = {"--version"};
             options.environment = {{"PATH", "/usr/bin:/bin"}};
             options.mergeErrorIntoOutput = true;
             return options;
           },
       .limit = answerLimit,
       .input = std::nullopt},
      weakly(this, [](Updater& self, const ProgramRunner::Outcome& outcome) {
        self.inBackground(
            [outcome](const UpdateInstaller& installer) {
              return installer.take(outcome.status, outcome.output);
            },
            [](Updater& taken) {
              taken.tell([&](UpdateDriver& driver) {
                driver.readyToInstall(weakly(&taken, [](Updater& asked, UpdateChoice choice) {
                  if (!asked.installer_) return;
                  if (choice == UpdateChoice::install) return asked.install();
                  asked.rest();
                }));
              });
            });
      }));
}

void Updater::install() {
  tell([](UpdateDriver& driver) { driver.installing(true); });
  inBackground([](const UpdateInstaller& installer) { return installer.exchange(); },
               [](Updater& self) {
                 self.tell([](UpdateDriver& driver) { driver.installing(false); });
                 // It stays busy: this process is of the version that has gone.
                 self.relaunch_ =
                     self.core_.main.after(farewell, weakly(&self, [](Updater& waiting) {
                                             if (waiting.core_.relaunch) waiting.core_.relaunch();
                                           }));
               });
}

void Updater::inBackground(std::function<Outcome(const UpdateInstaller&)> work,
                           std::function<void(Updater&)> then) {
  auto ended = weakly(this, [then = std::move(then)](Updater& self, const Outcome& outcome) {
    if (!outcome) return self.fail(outcome.error());
    then(self);
  });
  core_.pool.post([installer = installer_, work = std::move(work), &main = core_.main,
                   ended = std::move(ended)]() mutable {
    main.post([outcome = work(*installer), ended = std::move(ended)]() mutable { ended(outcome); });
  });
}

}  // namespace vantrell
