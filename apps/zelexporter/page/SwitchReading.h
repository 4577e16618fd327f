// One reading of what the agent publishes of its ports and chips, and the documents that tell the page of it.
#pragma once

#include "apps/zelctl/views/Place.h"
#include "apps/zelexporter/page/KeptTable.h"
#include "apps/zelexporter/page/ReasonRates.h"
#include "kiln/JsonWriter.h"

namespace ZelExporter {

// Documents are JSON, with numbers as PageJson.h has them. One thread at a time.
class SwitchReading {
 public:
   // `problem`: why the store is none to read; empty if it is one.
   explicit SwitchReading(Silo::Store store, Kiln::String problem = "");

   // Reads all tables. Those that are missing are left out.
   void read();
   // Whether there is an agent now, whatever was read.
   bool isWriterAlive() { return ports_.isWriterAlive(); }
   double time() const { return table_.now; }                        // of the reading, on the monotonic clock
   double pollingInterval() const { return table_.pollingInterval; } // 0 if it is not known

   // All ports with what their tiles show; the chips; and what is to be said of the agent.
   Kiln::String portsJson() const;
   // What ports drop most, and for which reasons: by rate, or by total if nothing drops now.
   Kiln::String dropsJson() const;
   // All that is known of a port. Empty if there is none of this name.
   Kiln::String portJson(const Kiln::String& intf);

 private:
   using IntfCounters = Silo::Interface::IntfCounters;
   using IntfQueueCounters = Silo::Interface::IntfQueueCounters;

   struct Chip {
      Kiln::String name;
      U32 device = 0;
      std::optional<Vex::RecordText> health{};
      std::optional<double> age{}; // of what is known of its health
   };
   // One of those that a port's drops are the sum of: a counter, or a reason.
   struct Part {
      Kiln::String name;
      U64 total = 0;
      std::optional<double> rate{};
   };
   // Sums of rates and of totals, if they are known.
   struct Drops {
      std::vector<Part> parts; // those that ever counted
      std::optional<double> rate{};
      std::optional<U64> total{};
   };
   struct Port {
      Kiln::String name;
      ZelCtl::Place place;
      Drops counted;  // by MAC and queues
      Drops reasoned; // by reason
      std::vector<ReasonDrops> reasons;
      Silo::ReadResult result = Silo::ReadResult::absent;
      std::optional<double> age;
      U64 speed = 0;
      std::size_t entry = 0;             // of the table of ports
      std::optional<std::size_t> chip{}; // among the chips; none if nobody says
      U32 devicePort = 0;

      // A frame may be counted by both, so they are not added: the higher one is what the port drops.
      std::optional<double> dropRate() const;
      std::optional<U64> dropTotal() const { return std::max(counted.total, reasoned.total); }
   };

   // The row of a port with its queues' drops, and that of the queues.
   struct Rows {
      ZelCtl::PublishedRow port;
      std::optional<ZelCtl::PublishedRow> queues{};
   };
   Rows rowsOf(std::size_t entry);
   void readPorts();
   void readChips();
   std::vector<Kiln::String> notes() const;
   std::optional<double> age(double time) const;
   void addChip(Kiln::JsonWriter* out, const Chip& chip) const;
   void addPort(Kiln::JsonWriter* out, const Port& port) const;
   void addDroppingPorts(Kiln::JsonWriter* out) const;
   void addReasons(Kiln::JsonWriter* out) const;

   const Silo::Store store_;
   const Kiln::String problem_;
   KeptTable<IntfCounters> ports_;
   KeptTable<IntfQueueCounters> queues_;
   KeptTable<Silo::Interface::IntfPlace> places_;
   KeptTable<Silo::Interface::IntfDropCounters> drops_;
   KeptTable<Silo::Interface::ChipHealth> health_;

   ZelCtl::PublishedTable table_; // of ports, without rows
   double unixTime_ = 0;          // of the reading
   ReasonRates reasons_;
   std::vector<Chip> chips_; // by device
   std::vector<Port> shown_; // in natural order
   std::map<Kiln::String, std::size_t, std::less<>> queueEntries_;
};

} // namespace ZelExporter
