#include "gateway/gateway_store.h"

#include <fmt/format.h>
#include <mutex>
#include <utility>

#include "platform/queues/weakly.h"
#include "records/stores/orchestration_store.h"

namespace vantrell {

static constexpr auto fieldsOf(const SiteKey*) {
  using R = SiteKey;
  return fields(field("id", &R::id), field("name", &R::name), field("secretHash", &R::secretHash),
                field("allowedWorkspacePaths", &R::allowedWorkspacePaths),
                field("allowedProviders", &R::allowedProviders),
                field("maximumPermissionMode", &R::maximumPermissionMode),
                field("createdAt", &R::createdAt), field("lastUsedAt", &R::lastUsedAt));
}

/// A file with another number is one that cannot be read.
struct StoredPort {
  std::int64_t number = GatewayConfiguration().port;
};
struct StoredConfiguration {
  bool enabled = GatewayConfiguration().enabled;
  GatewayListenMode listenMode = GatewayConfiguration().listenMode;
  StoredPort port;
  std::vector<SiteKey> siteKeys;
};

static bool readJson(const Json& json, StoredPort& port, JsonReading& reading) {
  if (!readJson(json, port.number, reading)) return false;
  return (port.number >= 0 && port.number <= 65535) || reading.fail("expected a port number");
}
static void writeJson(JsonWriter& writer, const StoredPort& port, const JsonPolicy& policy) {
  writeJson(writer, port.number, policy);
}

static constexpr auto fieldsOf(const StoredConfiguration*) {
  using R = StoredConfiguration;
  return fields(field("enabled", &R::enabled), field("listenMode", &R::listenMode),
                field("port", &R::port), field("siteKeys", &R::siteKeys));
}

static constexpr auto fieldsOf(const GatewayApprovalOption*) {
  using R = GatewayApprovalOption;
  return fields(field("id", &R::id), field("name", &R::name), field("kind", &R::kind));
}

static constexpr auto fieldsOf(const GatewayApproval*) {
  using R = GatewayApproval;
  return fields(field("requestID", &R::requestID), field("title", &R::title),
                field("detail", &R::detail), field("options", &R::options));
}

static constexpr auto fieldsOf(const GatewayJobEvent*) {
  using R = GatewayJobEvent;
  return fields(field("id", &R::id), field("timestamp", &R::timestamp), field("type", &R::type),
                field("message", &R::message));
}

static constexpr auto fieldsOf(const GatewayJob*) {
  using R = GatewayJob;
  return fields(field("id", &R::id), field("siteKeyID", &R::siteKeyID),
                field("projectID", &R::projectID), field("workspacePath", &R::workspacePath),
                field("workspaceName", &R::workspaceName), field("provider", &R::provider),
                field("prompt", &R::prompt), field("model", &R::model), field("effort", &R::effort),
                field("permissionMode", &R::permissionMode),
                field("idempotencyKey", &R::idempotencyKey), field("createdAt", &R::createdAt),
                field("startedAt", &R::startedAt), field("finishedAt", &R::finishedAt),
                field("status", &R::status), field("sessionID", &R::sessionID),
                field("output", &R::output), field("error", &R::error),
                field("pendingApproval", &R::pendingApproval), field("events", &R::events));
}

static void writeJson(JsonWriter& writer, const std::shared_ptr<const GatewayJob>& job,
                      const JsonPolicy& policy) {
  writeJson(writer, *job, policy);
}

namespace {
constexpr std::string_view configurationName = "personal-gateway.json";
constexpr std::string_view jobsName = "personal-gateway-jobs.json";
}  // namespace

/// What is written together: the newest state of each file.
struct GatewayStore::Batch {
  Prepared prepared;
  std::map<std::string_view, Write> writes;    // of what is prepared, from its start on
  std::vector<std::function<void()>> waiting;  // main queue
  std::once_flag once;
  std::map<std::string_view, std::string> failures;  // by file, once it has run

  /// On the thread that comes first; another one waits for it.
  void run() {
    std::call_once(once, [this] {
      for (const auto& [name, write] : writes) {
        if (const auto result = write(); !result) {
          failures.emplace(name, result.error().description);
        }
      }
    });
  }
};

GatewayStore::GatewayStore(MainQueue& main, Changes& changes, const std::string& supportFolder,
                           Executor& background)
    : main_(main),
      changes_(changes),
      background_(background),
      files_(std::make_unique<OrchestrationStore>(
          supportFolder, [&main] { return main.now(); },
          [&changes](const std::string& text) { changes.notice(text); }, ".")) {}

GatewayStore::~GatewayStore() {
  flush();
}

GatewayConfiguration GatewayStore::loadConfiguration() {
  const auto read = files_->load(configurationName, StoredConfiguration());
  return {read.enabled, read.listenMode, read.port.number, read.siteKeys};
}

std::vector<GatewayJob> GatewayStore::loadJobs() {
  return files_->load(jobsName, std::vector<GatewayJob>());
}

void GatewayStore::save(const GatewayConfiguration& configuration) {
  const auto& [enabled, mode, port, keys] = configuration;
  put(configurationName, [this, stored = StoredConfiguration{enabled, mode, {port}, keys}] {
    return files_->prepareSave(stored, configurationName);
  });
}

void GatewayStore::save(Jobs jobs) {
  put(jobsName, [this, shared = std::make_shared<const Jobs>(std::move(jobs))] {
    return files_->prepareSharedSave(shared, jobsName);
  });
}

void GatewayStore::put(std::string_view name, Prepare prepare) {
  if (!pending_) pending_ = std::make_shared<Batch>();
  pending_->prepared.insert_or_assign(name, std::move(prepare));
  start();
}

void GatewayStore::start() {
  if (underWay_ || !pending_) return;
  retryTimer_.cancel();
  underWay_ = std::exchange(pending_, nullptr);
  underWay_->prepared.merge(failed_);  // where there is nothing newer
  failed_.clear();
  for (const auto& [name, prepare] : underWay_->prepared) underWay_->writes[name] = prepare();
  background_.post([this, batch = underWay_, &main = main_, life = std::weak_ptr(life_)] {
    batch->run();
    main.post([this, batch, life] {
      if (!life.expired()) finished(batch);
    });
  });
}

void GatewayStore::finished(const std::shared_ptr<Batch>& batch) {
  if (batch != underWay_) return;  // flush() was faster
  underWay_ = nullptr;
  for (const auto& [name, reason] : batch->failures) {
    failed_.insert(batch->prepared.extract(name));
    changes_.saveFailed(fmt::format("The gateway's {} could not be saved: {}",
                                    name == jobsName ? "jobs" : "site keys", reason));
  }
  if (!failed_.empty()) {
    retryTimer_ = main_.after(retryPause, [this] { retry(); });
  }
  start();
  for (const auto& done : batch->waiting) done();
}

void GatewayStore::retry() {
  if (!pending_) pending_ = std::make_shared<Batch>();
  start();
}

void GatewayStore::whenSaved(std::function<void()> done) {
  if (pending_) return pending_->waiting.push_back(std::move(done));
  if (underWay_) return underWay_->waiting.push_back(std::move(done));
  done();
}

bool GatewayStore::flush() {
  const auto finishAll = [this] {
    while (const auto batch = underWay_) {
      batch->run();
      finished(batch);
    }
  };
  finishAll();
  if (!failed_.empty()) {
    retry();  // a last try
    finishAll();
  }
  retryTimer_.cancel();
  return failed_.empty();
}

}  // namespace vantrell
