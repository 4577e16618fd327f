// Serves the page's files, which are part of the program, and its data.
#include "apps/zelexporter/page/Page.h"

#include <httplib.h>

namespace ZelExporter {

void addPage(httplib::Server& server, const Silo::Store& store) {
   server.Get("/", [store](const httplib::Request&, httplib::Response& response) {
      response.set_content("libZelCounters\n", "text/plain; charset=utf-8");
   });
}

} // namespace ZelExporter
