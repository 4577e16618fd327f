// The documents that the page loads. Any number of browsers share one reading of the tables.
#pragma once

#include "apps/zelctl/events/EventReader.h"
#include "apps/zelctl/views/PastSamples.h"
#include "apps/zelexporter/PackedText.h"
#include "apps/zelexporter/page/SwitchReading.h"

#include <memory>

namespace ZelExporter {

struct Document {
   std::shared_ptr<const PackedText> text; // JSON; null: there is no such interface
   Kiln::String tag;                       // another one for another text
   double untilNext = 0;                   // seconds until there may be a newer one
   double age = 0;                         // seconds since the tables were read
};

// Reads when it is asked, and at most once a polling interval; again at once if the agent came or went. Within a
// reading, each document is made once. One thread at a time.
class PageData {
 public:
   // `problem`: why the store is none to read; empty if it is one.
   explicit PageData(const Silo::Store& store, const Kiln::String& problem = "");

   Document ports();
   Document drops();
   Document events(); // the newest, the last one first
   Document port(const Kiln::String& intf);
   // Rates of what the flight recorder has of the interface in the last so many seconds, as columns of a plot.
   Document history(const Kiln::String& intf, double seconds);

 private:
   template <class Make>
   Document document(const Kiln::String& key, Make make);
   void refresh(double now);
   Kiln::String eventsJson();
   Kiln::String historyJson(const Kiln::String& intf, double seconds);

   const Silo::Store store_;
   SwitchReading reading_;
   std::optional<ZelCtl::PastTable> past_;
   std::optional<ZelCtl::EventReader> events_;
   double due_ = 0; // when the next reading is, on the monotonic clock
   bool wasWriterAlive_ = false;
   std::map<Kiln::String, Document> documents_; // of this reading, by what was asked for
};

} // namespace ZelExporter
