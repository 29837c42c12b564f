// What a runtime may ask of its host, in any order: each line is a method, a space and the params
// as JSON. Whatever it is, it is answered exactly once, nothing outside the project is read or
// changed, and what is answered is valid JSON text.
//
// The commands of terminals are replaced by a harmless one: the fuzzer must not find `rm`.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "runtimes/acp/acp_host_services.h"
#include "runtimes/wire/line_buffer.h"

namespace {

using namespace vantrell;

void require(bool holds) {
  if (!holds) std::abort();
}

constexpr std::string_view secret = "outside of the project";

/// A folder with a project in it, and beside it what must not be touched: a sibling whose name
/// begins with the project's.
class World {
 public:
  World() {
    std::string name = files::temporaryFolder() + "/vantrell-fuzz-XXXXXX";
    require(::mkdtemp(name.data()) != nullptr);
    base_ = name;
    std::filesystem::create_directories(project());
    std::filesystem::create_directories(base_ + "/project-sibling");
    std::ofstream(base_ + "/project-sibling/secret") << secret;
    std::ofstream(project() + "/file") << "one\ntwo\nthree";
    // A relative path counts from the folder of this process.
    std::filesystem::current_path(project());
  }
  ~World() { std::filesystem::remove_all(base_); }

  std::string project() const { return base_ + "/project"; }
  void check() const {
    const auto content = files::read(base_ + "/project-sibling/secret");
    require(content && *content == secret);
    int entries = 0;
    for ([[maybe_unused]] const auto& each : std::filesystem::directory_iterator(base_)) ++entries;
    require(entries == 2);
  }

 private:
  std::string base_;
};

class Driver {
 public:
  explicit Driver(const World& world)
      : services_(std::make_shared<ACPHostServices>(
            world.project(), Environment{{"PATH", "/usr/bin:/bin"}}, queue_)) {}

  void line(std::string_view text) {
    const auto space = text.find(' ');
    if (space == std::string_view::npos) return;
    auto params = json::parseObject(text.substr(space + 1));
    if (!params) return;
    if (const Json* command = params->find("command"); command && command->asText()) {
      if (!command->asText()->empty()) params->set("command", "printf");
    }
    // What a variable can do to a program is not what is looked for here.
    params->remove("env");
    // "last" stands for the newest terminal: an identifier is random and no fuzzer guesses it.
    if (const Json* id = params->find("terminalId");
        id && id->asText() && *id->asText() == "last") {
      params->set("terminalId", lastTerminal_);
    }
    perform(std::string(text.substr(0, space)), *std::move(params));
  }

  void finish() {
    run([this] { services_->releaseAll(); });
    run([this] { services_.reset(); });
    require(answers_ == requests_);
  }

 private:
  void perform(std::string method, JsonObject params) {
    run([&] {
      auto times = std::make_shared<int>(0);
      const bool known =
          services_->handle(method, params, [this, times](ACPHostServices::Answer a) {
            require(++*times == 1);
            ++answers_;
            if (!a) return;
            const std::string written = json::write(*a);
            require(text::isValidUtf8(written) && json::parseObject(written));
            require(!written.contains(secret));
            if (const auto* id = json::text(*a, "terminalId")) lastTerminal_ = *id;
          });
      if (known) ++requests_;
      require(known || *times == 0);
    });
  }

  void run(std::function<void()> work) {
    std::promise<void> done;
    queue_.post([&] {
      work();
      done.set_value();
    });
    done.get_future().wait();
  }

  BackgroundPool pool_{1};
  SerialQueue queue_{pool_, "fuzz"};
  std::shared_ptr<ACPHostServices> services_;
  std::string lastTerminal_;
  std::atomic<int> requests_ = 0;
  std::atomic<int> answers_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const World world;
  Driver driver(world);
  vantrell::LineBuffer lines;
  int left = 8;  // requests: a terminal costs a process
  lines.consume(std::string_view(reinterpret_cast<const char*>(data), size),
                [&](std::string_view line) {
                  if (left-- > 0) driver.line(line);
                });
  driver.finish();
  world.check();
  return 0;
}
