// zelexporter: gives a collector what the agent publishes, over HTTP, and an operator a page to look at.
#include "apps/metrics/Exposition.h"
#include "apps/zelexporter/page/Page.h"
#include "vex/SharedTables.h"

#include <httplib.h>

int main() {
   const Silo::Store store = Vex::defaultTableStore();
   httplib::Server server;
   ZelMetrics::Exposition exposition(store, {});
   std::mutex mutex;
   server.Get("/metrics", [&](const httplib::Request&, httplib::Response& response) {
      const std::lock_guard lock(mutex);
      Kiln::String text;
      exposition.scrape(ZelMetrics::Format::openMetrics, &text);
      response.set_content(text, ZelMetrics::contentType(ZelMetrics::Format::openMetrics));
   });
   ZelExporter::addPage(server, store);
   return server.listen("127.0.0.1", 9469) ? 0 : 1;
}
