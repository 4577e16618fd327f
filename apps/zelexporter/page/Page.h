// The page that an operator leaves open, and the data that it shows.
#pragma once

#include "silo/Store.h"

namespace httplib {
class Server;
}

namespace ZelExporter {

// Adds "/" and what it loads to the server, whose threads then read the store's tables. The server must not be running
// yet.
void addPage(httplib::Server& server, const Silo::Store& store);

} // namespace ZelExporter
