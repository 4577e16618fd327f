// The page that an operator leaves open, and the data that it shows.
#pragma once

#include "apps/zelexporter/PackedText.h"
#include "silo/Store.h"

#include <functional>

namespace httplib { // NOLINT(readability-identifier-naming): the library's
struct Request;
struct Response;
class Server;
} // namespace httplib

namespace ZelExporter {

// Has the text sent as the answer, packed if the request's Accept-Encoding says so.
using GiveText = std::function<void(const httplib::Request&, httplib::Response&,
                                    std::shared_ptr<const PackedText>, const char* contentType)>;

// Adds "/" and what it loads to the server, which then reads the store's tables, and has one thread. It must not be
// running yet. `problem`: why the store is none to read; empty if it is one.
void addPage(httplib::Server& server, const Silo::Store& store, const Kiln::String& problem,
             const GiveText& give);

} // namespace ZelExporter
