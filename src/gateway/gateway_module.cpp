#include "gateway/gateway_module.h"

namespace vantrell {

GatewayModule::GatewayModule(const Dependencies& given)
    : http(given.main),
      store(given.main, given.changes, given.supportFolder, given.pool),
      keys(given.main, given.changes, store),
      scope(given.main, given.tree, given.settings, given.providers),
      jobs(std::make_shared<GatewayJobs>(
          GatewayJobs::Dependencies{given.main, given.changes, keys, scope, store})),
      jobRoutes({given.main, *jobs, scope, keys, store, given.pool}),
      compatibilityRoutes(CompatibilityRoutes::make(given.main, http, given.providers)),
      server(given.main),
      gateway({given.changes, server, keys, *jobs, jobRoutes, *compatibilityRoutes}) {}

GatewayModule::~GatewayModule() {
  endAllWork();
}

void GatewayModule::load() {
  keys.load();
  jobs->load();
}

bool GatewayModule::endAllWork() {
  gateway.stop();
  compatibilityRoutes->endAllWork();
  jobs->endAllWork();
  return store.flush();
}

}  // namespace vantrell
