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
   explicit SwitchReading(Silo::Store store);

   // Reads all tables. Those that are missing are left out.
   void read();
   // Whether there is an agent now, whatever was read.
   bool isWriterAlive() { return ports_.isWriterAlive(); }
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
   // One of the counters that a port's drops are the sum of.
   struct Part {
      const char* counter;
      U64 total = 0;
      std::optional<double> rate{};
   };
   struct Port {
      Kiln::String name;
      ZelCtl::Place place;
      std::vector<Part> dropParts; // those that ever counted
      Silo::ReadResult result = Silo::ReadResult::absent;
      std::optional<double> age;
      U64 speed = 0;
      std::size_t entry = 0;             // of the table of ports
      std::optional<std::size_t> chip{}; // among the chips; none if nobody says
      U32 devicePort = 0;
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
   std::vector<ReasonDrops> reasonsOf(const Port& port) const {
      return reasons_.of(port.name, table_.isWriterAlive && port.age);
   }
   void addChip(Kiln::JsonWriter* out, const Chip& chip) const;
   void addPort(Kiln::JsonWriter* out, const Port& port) const;
   void addDroppingPorts(Kiln::JsonWriter* out) const;
   void addReasons(Kiln::JsonWriter* out) const;

   const Silo::Store store_;
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
