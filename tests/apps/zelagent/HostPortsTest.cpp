// The host's interfaces as ports. A temporary folder stands for the kernel's.
#include "apps/zelagent/HostPorts.h"

#include "silo/TableReader.h"
#include "tests/apps/zelagent/AgentRig.h"
#include "tests/support/LoggedMessages.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>

namespace {

using Kiln::String;

class HostPorts : public ZelTest::AgentRig {
 protected:
   HostPorts() { std::ofstream(folder_.path() + "/bonding_masters") << "\n"; }
   ~HostPorts() override {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      hostPorts_.reset();
   }

   void counts(const String& interface, const std::vector<std::pair<String, U64>>& changes) {
      const String statistics = folder_.path() + "/" + interface + "/statistics/";
      if (std::filesystem::create_directories(statistics)) {
         for (const char* counter :
              {"rx_packets", "rx_bytes", "rx_errors", "rx_crc_errors", "rx_frame_errors", "rx_dropped",
               "rx_missed_errors", "multicast", "tx_packets", "tx_bytes", "tx_errors", "tx_dropped"}) {
            std::ofstream(statistics + counter) << "0\n";
         }
      }
      for (const auto& [counter, value] : changes) {
         std::ofstream(statistics + counter) << value << '\n';
      }
   }
   void begin() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      start({.ports = 0});
      hostPorts_.emplace(*agent_, SoftChip::HostInterfaces(folder_.path()));
   }
   void poll() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      advance(3);
   }
   // What the platform is told; none if nothing.
   std::optional<U64> speed(const String& interface) {
      const auto& speeds = agent_->countersMgr().mounts()->ethPhyIntfStatusDir()->speed();
      const U64* const told = speeds.find(Pelt::IntfId(Kiln::Name(interface)));
      return told != nullptr ? std::optional(*told) : std::nullopt;
   }
   // A counter of the published record; none if there is no record.
   std::optional<U64> total(const String& interface, const String& field) {
      using Silo::Interface::IntfCounters;
      Silo::TableReader<IntfCounters> reader(agent_->tableStore(), Silo::Interface::TableName::intfCounters);
      Silo::Sample<IntfCounters> sample;
      if (reader.read(interface, sample) != Silo::ReadResult::ok) {
         return std::nullopt;
      }
      for (std::size_t i = 0; i < Interface::ethIntfFields.size(); ++i) {
         if (Interface::ethIntfFields[i].name == field) {
            return sample.record.totals[i];
         }
      }
      return std::nullopt;
   }

   const ZelTest::TemporaryFolder folder_;
   std::optional<ZelAgent::HostPorts> hostPorts_;
};

TEST_F(HostPorts, PublishesWhatTheKernelCounts) {
   counts("eth0", {{"rx_packets", 100},
                   {"rx_bytes", 9000},
                   {"multicast", 30},
                   {"rx_errors", 7},
                   {"rx_crc_errors", 4},
                   {"rx_frame_errors", 3},
                   {"rx_dropped", 5},
                   {"rx_missed_errors", 6},
                   {"tx_packets", 50},
                   {"tx_bytes", 4000},
                   {"tx_errors", 2},
                   {"tx_dropped", 1}});
   begin();
   poll();
   const std::vector<std::pair<String, U64>> expected = {
        {"in-octets", 9000},  {"in-pkts", 107},     {"in-unicast-pkts", 70},    {"in-multicast-pkts", 30},
        {"in-errors", 7},     {"in-fcs-errors", 4}, {"in-alignment-errors", 3}, {"in-discards", 11},
        {"out-octets", 4000}, {"out-pkts", 52},     {"out-unicast-pkts", 50},   {"out-errors", 2},
        {"out-discards", 1},
   };
   for (const auto& [field, value] : expected) {
      EXPECT_EQ(total("eth0", field), value) << field;
   }
   // The kernel's counters are not read at one moment, so fewer unicast frames than before are not a fall.
   counts("eth0", {{"rx_packets", 101}, {"multicast", 40}});
   poll();
   EXPECT_EQ(total("eth0", "in-unicast-pkts"), 70U);
   EXPECT_EQ(total("eth0", "in-multicast-pkts"), 40U);
}

TEST_F(HostPorts, FollowsInterfacesThatComeAndGo) {
   counts("eth0", {{"rx_bytes", 1000}});
   counts("lo", {{"rx_bytes", 2000}});
   begin();
   poll();
   EXPECT_EQ(hostPorts_->names(), (std::vector<String>{"eth0", "lo"}));
   std::filesystem::remove_all(folder_.path() + "/eth0");
   poll();
   EXPECT_EQ(total("eth0", "in-octets"), std::nullopt);
   EXPECT_EQ(total("lo", "in-octets"), 2000U);
   // The new interface has none of the counts of the one that went.
   counts("wlan0", {{"rx_bytes", 10}});
   poll();
   EXPECT_EQ(total("wlan0", "in-octets"), 10U);
   EXPECT_EQ(total("wlan0", "in-errors"), 0U);
   EXPECT_EQ(hostPorts_->names(), (std::vector<String>{"lo", "wlan0"}));
}

TEST_F(HostPorts, KeepsWhatItCannotLookAtAndSaysSoOnce) {
   counts("eth0", {{"rx_bytes", 1000}});
   std::ofstream(folder_.path() + "/eth0/speed") << "100\n";
   begin();
   poll();
   ZelTest::LoggedMessages messages;
   {
      const ZelTest::NoDescriptors none;
      poll();
      poll();
   }
   EXPECT_EQ(hostPorts_->names(), (std::vector<String>{"eth0"}));
   EXPECT_EQ(speed("eth0"), 100'000'000U);
   EXPECT_EQ(total("eth0", "in-octets"), 1000U);
   EXPECT_EQ(messages.take(),
             (std::vector<String>{"ZEL_AGENT_HOST_UNREADABLE The host's interfaces can't be looked at: "
                                  "Too many open files. Their counts stand still."}));
   counts("eth0", {{"rx_bytes", 3000}});
   poll();
   poll();
   EXPECT_EQ(total("eth0", "in-octets"), 3000U);
   EXPECT_EQ(messages.take(),
             (std::vector<String>{"ZEL_AGENT_HOST_READABLE The host's interfaces are looked at again."}));
}

TEST_F(HostPorts, UnicastFramesAreComparedWithTheSameInterfacesOnly) {
   counts("eth0", {{"rx_packets", 100}});
   begin();
   std::filesystem::remove_all(folder_.path() + "/eth0");
   poll();
   counts("wlan0", {{"rx_packets", 200}, {"multicast", 150}});
   poll();
   const ZelAgent::SwitchAgent::Port port = agent_->portOf("wlan0");
   EXPECT_EQ(port.chip.rmon(port.devicePort, BF_RMON_UNICAST_FRAMES_RECEIVED_OK), 50U);
   // The interface itself begins anew.
   counts("wlan0", {{"rx_packets", 20}, {"multicast", 15}});
   poll();
   EXPECT_EQ(port.chip.rmon(port.devicePort, BF_RMON_UNICAST_FRAMES_RECEIVED_OK), 5U);
   // One that comes back has nothing of its former counts.
   counts("eth0", {{"rx_packets", 200}, {"multicast", 150}});
   poll();
   const ZelAgent::SwitchAgent::Port back = agent_->portOf("eth0");
   EXPECT_EQ(back.chip.rmon(back.devicePort, BF_RMON_UNICAST_FRAMES_RECEIVED_OK), 50U);
}

TEST_F(HostPorts, SpeedsAreTheKernelsAndFollowTheLink) {
   const auto mbits = [&](const String& text) {
      std::ofstream(folder_.path() + "/eth0/speed") << text << '\n';
   };
   counts("eth0", {});
   counts("lo", {});
   mbits("2500");
   begin();
   EXPECT_EQ(speed("eth0"), 2'500'000'000U);
   EXPECT_EQ(speed("lo"), std::nullopt) << "no such file";
   mbits("100");
   poll();
   EXPECT_EQ(speed("eth0"), 100'000'000U);
   for (const char* unknown : {"-1", "0", "4294967295"}) {
      mbits(unknown);
      poll();
      EXPECT_EQ(speed("eth0"), std::nullopt) << unknown;
   }
   mbits("1000");
   poll();
   EXPECT_EQ(speed("eth0"), 1'000'000'000U);
   std::filesystem::remove_all(folder_.path() + "/eth0");
   poll();
   EXPECT_EQ(speed("eth0"), std::nullopt);
}

TEST_F(HostPorts, AnInterfaceWhoseNameIsNoKeyIsLoggedOnceAndShownByTheAgent) {
   counts("eth0", {});
   counts("caf\xc3\xa9", {{"rx_packets", 7}});
   counts("a\x1b[2J", {});
   ZelTest::LoggedMessages logged;
   begin();
   poll();
   poll();
   EXPECT_THAT(logged.take(), testing::UnorderedElementsAre(
                                   testing::HasSubstr("Counters of interface caf\xc3\xa9 are not published"),
                                   testing::HasSubstr("Counters of interface a\x1b[2J are not published")));
   EXPECT_EQ(total("eth0", "in-pkts"), 0U);
   EXPECT_THAT(ask("show mac intf caf\xc3\xa9 json").text, testing::HasSubstr("\"Intf caf\\u00e9 (1)\""));
   EXPECT_THAT(ask("show mac json").text, testing::HasSubstr("\"Intf a\\u001b[2J (0)\""));
}

TEST_F(HostPorts, InterfacesBeyondThePortsAreLeftOut) {
   for (unsigned i = 0; i < 130; ++i) {
      counts("veth" + std::to_string(i), {});
   }
   begin();
   EXPECT_EQ(hostPorts_->names().size(), 128U);
}

} // namespace
