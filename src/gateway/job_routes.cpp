#include "gateway/job_routes.h"

#include <utility>

#include "platform/text/text.h"
#include "platform/values/json_objects.h"
#include "records/stores/json_fields.h"

namespace vantrell {

static constexpr auto fieldsOf(const GatewayJobRequest*) {
  using R = GatewayJobRequest;
  return fields(field("project", &R::project), field("provider", &R::provider),
                field("prompt", &R::prompt), field("model", &R::model), field("effort", &R::effort),
                field("permission_mode", &R::permissionMode));
}

namespace {

GatewayResponse errorResponse(const GatewayError& error) {
  return GatewayResponse::error(error.status, error.code, error.message);
}

GatewayResponse noRoute() {
  return GatewayResponse::error(404, "not_found",
                                "No Personal Gateway route matches this request.");
}

// ---- the form of the wire -----------------------------------------------------------------------

Json wireForm(const GatewayApproval& approval) {
  Json::Array options;
  for (const auto& [id, name, kind] : approval.options) {
    options.push_back(JsonObject{{"id", id}, {"name", name}, {"kind", kind}});
  }
  return JsonObject{{"request_id", approval.requestID},
                    {"title", approval.title},
                    {"detail", approval.detail},
                    {"options", std::move(options)}};
}

Json wireForm(const std::vector<GatewayJobEvent>& events) {
  Json::Array all;
  for (const auto& each : events) {
    all.push_back(JsonObject{{"id", each.id.text()},
                             {"timestamp", iso8601(each.timestamp)},
                             {"type", each.type},
                             {"message", each.message}});
  }
  return all;
}

JsonObject wireForm(const GatewayJob& job) {
  JsonObject object{{"id", job.id.text()},
                    {"project", job.projectID.text()},
                    {"project_name", job.workspaceName},
                    {"provider", rawText(job.provider)},
                    {"prompt", job.prompt},
                    {"permission_mode", rawText(job.permissionMode)},
                    {"created_at", iso8601(job.createdAt)},
                    {"status", rawText(job.status)},
                    {"output", job.output},
                    {"events", wireForm(job.events)}};
  json::setIfKnown(object, "model", job.model);
  json::setIfKnown(object, "effort", job.effort);
  json::setIfKnown(object, "started_at", job.startedAt.transform(iso8601));
  json::setIfKnown(object, "finished_at", job.finishedAt.transform(iso8601));
  json::setIfKnown(object, "session_id", job.sessionID);
  json::setIfKnown(object, "error", job.error);
  if (job.pendingApproval) object.set("pending_approval", wireForm(*job.pendingApproval));
  return object;
}

/// Newest first; written job by job, so that no second copy of all is held.
std::string listText(const std::vector<GatewayJobs::Job>& oldestFirst) {
  std::string text = "[";
  for (auto each = oldestFirst.rbegin(); each != oldestFirst.rend(); ++each) {
    if (text.size() > 1) text += ',';
    auto job = wireForm(**each);
    if (text.size() + (*each)->output.size() > JobRoutes::longestList) job.remove("output");
    text += json::writeSorted(job);
  }
  return text += ']';
}

std::optional<GatewayJobRequest> jobRequestIn(const GatewayRequest& given, bool isOfFleet) {
  auto object = json::parseObject(given.body);
  if (!object) return std::nullopt;
  const Json* project = isOfFleet ? object->find("project_id") : nullptr;
  if (project && !object->find("project")) object->set("project", Json(*project));
  GatewayJobRequest request;
  JsonReading reading{orchestrationJson};
  if (!readJson(Json(*std::move(object)), request, reading)) return std::nullopt;
  if (const auto key = given.headers.find("idempotency-key")) {
    if (key->empty() || key->size() > GatewayJobs::longestIdempotencyKey) return std::nullopt;
    request.idempotencyKey = std::string(*key);
  }
  return request;
}

std::optional<std::string> optionIn(const std::string& body) {
  const auto object = json::parseObject(body);
  const std::string* option = object ? json::text(*object, "option_id") : nullptr;
  if (!option) return std::nullopt;
  return *option;
}

}  // namespace

// ---- routes -------------------------------------------------------------------------------------

void JobRoutes::respond(const GatewayRequest& request, const SiteKey& key, Completion completion) {
  auto parts = text::split(request.path, '/');
  std::erase(parts, std::string_view());
  const auto part = [&](std::size_t i) { return i < parts.size() ? parts[i] : std::string_view(); };
  const bool isGet = request.method == "GET";
  if (part(0) != "v1" || parts.size() > 4 || (!isGet && request.method != "POST")) {
    return completion(noRoute());
  }
  if (part(1) == "projects" && parts.size() == 2 && isGet) {
    return projects(key, std::move(completion));
  }
  if (part(1) != "jobs") return completion(noRoute());
  if (parts.size() > 2) return jobRoute(request, key.id, part(2), part(3), std::move(completion));
  if (!isGet) return create(request, key, std::move(completion));
  encode([jobs = core_.jobs.jobs(key.id)] { return listText(jobs); }, 200, std::move(completion));
}

void JobRoutes::projects(const SiteKey& key, Completion completion) {
  core_.scope.prepare(key.allowedProviders, [this, life = std::weak_ptr(life_), key,
                                             completion = std::move(completion)] {
    if (life.expired()) return;
    Json::Array projects, folders;
    for (const auto* each : core_.scope.projects(key)) {
      projects.push_back(JsonObject{{"id", each->id.text()}, {"name", each->name}});
      if (servesFleet_) {
        folders.push_back(
            JsonObject{{"id", each->id.text()}, {"name", each->name}, {"path", each->path}});
      }
    }
    Json::Array providers;
    for (const auto each : core_.scope.providers(key)) providers.push_back(rawText(each));
    JsonObject answer{{"projects", std::move(projects)}, {"providers", std::move(providers)}};
    if (servesFleet_) answer.set("data", std::move(folders));
    completion(GatewayResponse::json(std::move(answer)));
  });
}

void JobRoutes::create(const GatewayRequest& request, const SiteKey& key, Completion completion) {
  auto job = jobRequestIn(request, servesFleet_);
  if (!job) {
    return completion(
        GatewayResponse::error(400, "invalid_job", "Send project, provider, and prompt as JSON."));
  }
  if (auto before = core_.jobs.repeated(*job, key.id)) {
    return changed(*before, 202, std::move(completion));
  }
  // Whether the provider is ready is asked last: it may cost a look for a model server.
  if (const auto admitted = core_.jobs.admit(*job, key.id); !admitted) {
    return completion(errorResponse(admitted.error()));
  }
  const AgentProvider provider = job->provider;
  core_.scope.prepare({provider}, [this, life = std::weak_ptr(life_), job = *std::move(job),
                                   keyID = key.id, completion = std::move(completion)] {
    if (life.expired()) return;
    changed(core_.jobs.create(job, keyID), 202, completion);
  });
}

void JobRoutes::jobRoute(const GatewayRequest& request, const Uuid& keyID, std::string_view idText,
                         std::string_view action, Completion completion) {
  const auto id = Uuid::parse(idText);
  if (!id) return completion(noRoute());
  if (request.method == "POST" && action == "cancel") {
    return changed(core_.jobs.cancel(*id, keyID), 200, std::move(completion));
  }
  if (request.method == "POST" && action == "approval") {
    const auto option = optionIn(request.body);
    if (option) {
      return changed(core_.jobs.answerApproval(*id, *option, keyID), 200, std::move(completion));
    }
    return completion(GatewayResponse::error(400, "invalid_approval", "Send option_id as JSON."));
  }
  const auto job = core_.jobs.find(*id, keyID);
  if (!job || request.method != "GET") return completion(noRoute());
  if (action.empty()) {
    encode([job] { return json::writeSorted(wireForm(*job)); }, 200, std::move(completion));
  } else if (action == "events") {
    encode([job] { return json::writeSorted(wireForm(job->events)); }, 200, std::move(completion));
  } else {
    completion(noRoute());
  }
}

void JobRoutes::changed(const GatewayResult<Job>& result, int status, Completion completion) {
  if (!result) return completion(errorResponse(result.error()));
  core_.store.whenSaved([this, life = std::weak_ptr(life_), job = *result, status,
                         completion = std::move(completion)] {
    if (life.expired()) return;
    encode([job] { return json::writeSorted(wireForm(*job)); }, status, completion);
  });
}

void JobRoutes::encode(std::function<std::string()> body, int status, Completion completion) {
  encoding_.post([&main = core_.main, body = std::move(body), status,
                  completion = std::move(completion)]() mutable {
    main.post([completion = std::move(completion),
               response = GatewayResponse{.status = status, .body = body()}]() mutable {
      completion(std::move(response));
    });
  });
}

}  // namespace vantrell
