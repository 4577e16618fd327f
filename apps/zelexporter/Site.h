// What the exporter answers, whoever asks and however the bytes travel.
#pragma once

#include "apps/zelexporter/Answer.h"
#include "apps/zelexporter/Options.h"
#include "apps/zelexporter/RequestHead.h"
#include "silo/Store.h"

namespace ZelExporter {

// Reads the shared tables only. The tables are chosen anew for each request, since agents come and go: this user's, or
// else root's. One thread.
class Site {
 public:
   explicit Site(const Options& options);
   ~Site();
   Site(const Site&) = delete;
   Site& operator=(const Site&) = delete;

   // `head` is a whole head that was not refused. `isLast`: no other request on this connection will be answered.
   Answer answer(std::string_view head, bool isLast);

 private:
   class Tables;
   void choose();

   const Options options_;
   std::unique_ptr<Tables> tables_; // as chosen last
};

// The answer that refuses a request, and ends the connection.
Answer refused(std::string_view head, const Refusal& refusal);

} // namespace ZelExporter
