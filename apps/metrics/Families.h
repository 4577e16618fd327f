// The families of metrics: what each is called, what it means, and of which type it is. The exposition and the reference
// in docs/metrics.md follow from this one table; the families of fields follow from the tables of fields.
#pragma once

#include "apps/metrics/Collectors.h"
#include "apps/metrics/FieldForm.h"

namespace ZelMetrics {

// Of a histogram the columns' tails name the samples: "_bucket{le=...} ", "_count ", "_sum ".
enum class Type : U8 { counter, gauge, info, stateset, histogram };

struct Family {
   Collector collector = Collector::count; // count: those that every scrape has
   Type type = Type::counter;
   FixedText<64> name;      // without what its type adds: "_total", "_info"
   std::string_view labels; // with commas between them
   FixedText<192> help;

   // The name's last word where that is a unit, else empty.
   constexpr std::string_view unit() const {
      const std::string_view last = name.view().substr(name.view().rfind('_') + 1);
      constexpr std::array units{"bytes", "seconds", "packets", "frames", "cells"};
      const bool isUnit = std::ranges::find(units, last) != units.end();
      return isUnit && type != Type::info && type != Type::stateset ? last : "";
   }
};

namespace Formed {

// The families of a table of fields. Fields that differ in a label's value only are one family; they are neighbours.
template <std::size_t fieldCount>
constexpr std::size_t familyCount(const std::array<Interface::StatisticsField, fieldCount>& fields) {
   std::size_t count = 0;
   for (std::size_t i = 0; i < fieldCount; ++i) {
      count += i == 0 || formOf(fields[i].name).name != formOf(fields[i - 1].name).name ? 1U : 0U;
   }
   return count;
}

struct Prefix {
   Collector collector;
   std::string_view name;
   std::string_view path; // of OpenConfig's interface
};
inline constexpr Prefix interfaces{Collector::interfaces, "zel_interface_", "/interfaces/interface"};
inline constexpr Prefix vlans{Collector::vlans, "zel_vlan_", "/interfaces/interface"};
inline constexpr Prefix subinterfaces{Collector::subinterfaces, "zel_subinterface_",
                                      "/interfaces/interface/subinterfaces/subinterface"};

constexpr Family familyOf(const Prefix& prefix, std::string_view field) {
   const FieldForm form = formOf(field);
   Family family;
   family.collector = prefix.collector;
   family.name.add(prefix.name);
   family.name.add(form.name.view());
   family.labels = form.label == "size"       ? "interface,size"
                   : form.label == "priority" ? "interface,priority"
                                              : "interface";
   family.help.add(form.help.view());
   if (!form.openConfig.view().empty()) {
      family.help.add(" (OpenConfig: ");
      family.help.add(prefix.path);
      family.help.add(form.openConfig.view());
      family.help.add(")");
   }
   family.help.add(".");
   return family;
}

struct Description {
   Collector collector;
   Type type;
   std::string_view name;
   std::string_view labels;
   std::string_view help;
};

// clang-format off
inline constexpr std::array others{
   Description{Collector::interfaces, Type::counter, "zel_interface_suspect_steps", "interface", "Steps of counters that were counted though the port's speed does not allow them."},
   Description{Collector::interfaces, Type::gauge, "zel_interface_discontinuity_timestamp_seconds", "interface", "When a wrap, an upset, a reset or another source last broke the counters' continuity; absent: nothing did."},
   Description{Collector::interfaces, Type::gauge, "zel_interface_speed_bytes", "interface", "Bytes per second that the port can carry, each way (OpenConfig: /interfaces/interface/ethernet/state/port-speed)."},
   Description{Collector::interfaces, Type::gauge, "zel_interface_age_seconds", "interface", "How long ago the port's counters were read."},
   Description{Collector::interfaces, Type::info, "zel_interface", "interface,chip,port,speed", "Where the port is: chip, device port, and speed in bit/s."},
   Description{Collector::queues, Type::counter, "zel_queue_packets", "interface,queue", "Packets that the queue sent (OpenConfig: /qos/interfaces/interface/output/queues/queue/state/transmit-pkts)."},
   Description{Collector::queues, Type::counter, "zel_queue_bytes", "interface,queue", "Bytes that the queue sent (OpenConfig: /qos/interfaces/interface/output/queues/queue/state/transmit-octets)."},
   Description{Collector::queues, Type::counter, "zel_queue_dropped_packets", "interface,queue", "Packets for which the queue had no room (OpenConfig: /qos/interfaces/interface/output/queues/queue/state/dropped-pkts)."},
   Description{Collector::queues, Type::gauge, "zel_queue_age_seconds", "interface", "How long ago the queues of the port were read."},
   Description{Collector::vlans, Type::gauge, "zel_vlan_age_seconds", "interface", "How long ago the counters of the VLAN interface were read."},
   Description{Collector::subinterfaces, Type::gauge, "zel_subinterface_age_seconds", "interface", "How long ago the counters of the subinterface were read."},
   Description{Collector::nat, Type::counter, "zel_nat_packets", "interface", "Packets that source NAT translated."},
   Description{Collector::nat, Type::counter, "zel_nat_bytes", "interface", "Bytes that source NAT translated."},
   Description{Collector::nat, Type::gauge, "zel_nat_age_seconds", "interface", "How long ago the counters of source NAT were read."},
   Description{Collector::drops, Type::counter, "zel_interface_dropped_packets", "interface,point,reason", "Packets that the program dropped: at ingress by the port of arrival, copies at egress by the port that they would have left by."},
   Description{Collector::drops, Type::counter, "zel_interface_lost_packets", "interface,reason", "Packets that lost every copy, by the port of arrival and by how far they came; zel_interface_dropped_packets has the same ones by reason."},
   Description{Collector::drops, Type::gauge, "zel_interface_drops_age_seconds", "interface", "How long ago the drops of the port were read."},
   Description{Collector::classes, Type::counter, "zel_interface_class_packets", "interface,class,id", "Packets received, by protocol data class."},
   Description{Collector::classes, Type::gauge, "zel_interface_classes_age_seconds", "interface", "How long ago the classes of the port were read."},
   Description{Collector::pipeline, Type::counter, "zel_pipe_stage_in_packets", "chip,pipe,stage", "Packets that came into the stage of the pipe."},
   Description{Collector::pipeline, Type::counter, "zel_pipe_stage_out_packets", "chip,pipe,stage", "Packets that left the stage of the pipe."},
   Description{Collector::pipeline, Type::counter, "zel_pipe_stage_dropped_packets", "chip,pipe,stage", "Packets that the stage of the pipe dropped."},
   Description{Collector::pipeline, Type::gauge, "zel_pipe_stages_age_seconds", "chip,pipe", "How long ago the stages of the pipe were read."},
   Description{Collector::mauDrops, Type::counter, "zel_pipe_dropped_packets", "chip,pipe,place", "Packets that a match-action stage or deparser of the pipe dropped."},
   Description{Collector::mauDrops, Type::gauge, "zel_pipe_drops_age_seconds", "chip,pipe", "How long ago the drops of the pipe's stages were read."},
   Description{Collector::trafficManager, Type::counter, "zel_traffic_manager_packets", "chip,pipe,counter", "Packets at the traffic manager."},
   Description{Collector::trafficManager, Type::counter, "zel_traffic_manager_bytes", "chip,pipe,counter", "Bytes at the traffic manager."},
   Description{Collector::trafficManager, Type::gauge, "zel_traffic_manager_cells", "chip,pipe", "Cells of the buffer in use."},
   Description{Collector::trafficManager, Type::gauge, "zel_traffic_manager_port_cells_peak", "chip,pipe", "The most cells that a port of the pipe had in use."},
   Description{Collector::trafficManager, Type::gauge, "zel_traffic_manager_age_seconds", "chip,pipe", "How long ago the traffic manager's counters of the pipe were read."},
   Description{Collector::health, Type::counter, "zel_chip_refused_reads", "chip", "Requests that the chip refused or answered with an error."},
   Description{Collector::health, Type::counter, "zel_chip_unanswered_reads", "chip", "Requests that were made again before their answer came."},
   Description{Collector::health, Type::counter, "zel_chip_late_completions", "chip", "Answers that nobody waited for any more."},
   Description{Collector::health, Type::counter, "zel_chip_wraps", "chip", "Counters of ports that ran over 64 bits."},
   Description{Collector::health, Type::counter, "zel_chip_upsets", "chip", "Values of ports' counters that cannot be, which the totals leave out."},
   Description{Collector::health, Type::stateset, "zel_chip_verdict", "chip,zel_chip_verdict", "How the chip's reads fare: ok, degraded or silent."},
   Description{Collector::health, Type::gauge, "zel_chip_requests_outstanding", "chip", "Requests that wait for their answer."},
   Description{Collector::health, Type::gauge, "zel_chip_pending_vlans", "chip", "VLANs without counters, for want of table entries."},
   Description{Collector::health, Type::gauge, "zel_chip_read_age_seconds", "chip,kind", "How long ago the oldest last good reading of the kind was; absent: one never came, or none is made."},
   Description{Collector::health, Type::gauge, "zel_chip_up_seconds", "chip", "How long the chip has been there."},
   Description{Collector::health, Type::gauge, "zel_chip_health_age_seconds", "chip", "How long ago the chip's health was published."},
   Description{Collector::health, Type::info, "zel_agent", "version", "The agent that publishes."},
   Description{Collector::health, Type::gauge, "zel_agent_started_timestamp_seconds", "", "When the agent started."},
   Description{Collector::health, Type::gauge, "zel_agent_dead_objects", "", "Objects of chips that are gone, kept for completions that are due or lost."},
   Description{Collector::health, Type::gauge, "zel_agent_lock_longest_hold_seconds", "", "The longest hold of the agent's activity lock."},
   Description{Collector::health, Type::gauge, "zel_agent_lock_longest_wait_seconds", "", "The longest wait for the agent's activity lock."},
   Description{Collector::health, Type::histogram, "zel_agent_lock_hold_seconds", "le", "How long the agent's activity lock was held at a time."},
   Description{Collector::count, Type::gauge, "zel_agent_up", "", "Whether the writer of the shared tables lives."},
   Description{Collector::count, Type::info, "zel_build", "version", "The program that read the shared tables."},
   Description{Collector::count, Type::gauge, "zel_scrape_duration_seconds", "", "How long this scrape took."},
   Description{Collector::count, Type::gauge, "zel_scrape_collector_errors", "collector", "1: a table of the collector could not be read in this scrape."},
   Description{Collector::count, Type::gauge, "zel_scrape_unreadable_records", "collector", "Records that were torn, damaged or without a proper name in this scrape, and are left out."},
};
// clang-format on

constexpr auto all() {
   constexpr auto& eth = Interface::ethIntfFields;
   constexpr auto& l3 = Interface::l3IntfFields;
   std::array<Family, familyCount(eth) + 2 * familyCount(l3) + others.size()> table;
   std::size_t used = 0;
   const auto addFields = [&](const Prefix& prefix, const auto& fields) {
      for (const Interface::StatisticsField& field : fields) {
         const Family family = familyOf(prefix, field.name);
         if (used == 0 || table[used - 1].name != family.name) {
            table[used++] = family;
         }
      }
   };
   const auto addOthersOf = [&](Collector collector) {
      for (const Description& one : others) {
         if (one.collector == collector) {
            Family& family = table[used++];
            family.collector = collector;
            family.type = one.type;
            family.name.add(one.name);
            family.labels = one.labels;
            family.help.add(one.help);
         }
      }
   };
   // The order of the exposition.
   for (unsigned i = 0; i <= static_cast<unsigned>(Collector::count); ++i) {
      const auto collector = static_cast<Collector>(i);
      if (collector == Collector::interfaces) {
         addFields(interfaces, eth);
      } else if (collector == Collector::vlans) {
         addFields(vlans, l3);
      } else if (collector == Collector::subinterfaces) {
         addFields(subinterfaces, l3);
      }
      addOthersOf(collector);
   }
   return table;
}

} // namespace Formed

inline constexpr auto families = Formed::all();

// Families begin with TYPE, UNIT and HELP, whose escapes none needs.
static_assert(std::ranges::all_of(families, [](const Family& one) {
   return !one.help.view().empty() && one.help.view().find_first_of("\\\"\n") == std::string_view::npos;
}));

// The place of a family in the table. Names a family of the table, or does not compile.
consteval std::size_t familyNamed(std::string_view name) {
   for (std::size_t i = 0; i < families.size(); ++i) {
      if (families[i].name.view() == name) {
         return i;
      }
   }
   throw "no such family";
}

} // namespace ZelMetrics
