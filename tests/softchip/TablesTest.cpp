// Counter tables behind the SDK's entry points: both copies, pipes and modes, match entries, and the frames that they
// count.
#include "kiln/ActivityManager.h"
#include "sdk/bf_tm.h"
#include "sdk/lld.h"
#include "sdk/pipe_mgr.h"
#include "softchip/PdpClasses.h"
#include "tests/softchip/SoftChipRig.h"
#include "zl/ZelCountersIntf.h"
#include "zl/ZelSdk.h"

#include <gmock/gmock.h>
#include <set>

namespace SoftChip {
namespace {

using testing::ElementsAre;
using ZlResourceInfo::notFound;

constexpr U16 onPipe0 = 0;
constexpr U16 onPipe1 = 1;

void countCallback(bf_dev_id_t /*dev*/, void* cookie) {
   ++*static_cast<int*>(cookie);
}

class Tables : public ZelTest::SoftChipRig {
 protected:
   Tables() {
      program->matchTableAdd({"acl", 4, Stage::ingress, {{.ipProtocol = 6}, {}}});
      program->matchTableAdd({"policy", 8});
      program->counterTableAdd({.name = "aclCount", .size = 4, .direct = true, .matchTable = "acl"});
      program->counterTableAdd({.name = "both", .size = 10, .matchTable = "policy"});
      program->counterTableAdd({.name = "packets", .size = 10, .bytes = false, .symmetric = false});
      chip = &fleet->chipAdd({.name = "Zel0", .deviceId = 0, .pipes = 2, .program = program});
   }

   U32 handleOf(const Kiln::String& name) const {
      return program->zlTableCounter(program->zlTableCounterIndex(name))->tableHandle;
   }
   U32 counterHandleOf(const Kiln::String& name) const {
      return program->zlTableCounter(program->zlTableCounterIndex(name))->counterHandle;
   }
   U32 matchHandleOf(const Kiln::String& name) const {
      return program->zlTable(program->zlTableIndex(name))->handle;
   }
   void sync(const Kiln::String& name, U16 pipe) {
      const dev_target_t target{0, pipe};
      ASSERT_EQ(pipe_mgr_stat_database_sync(sess_hdl, target, handleOf(name), countCallback, &callbacks), 0);
      advance(0);
   }
   CounterValue read(const Kiln::String& name, U16 pipe, U32 index) const {
      pipe_stat_data_t value{};
      EXPECT_EQ(pipe_mgr_stat_ent_query(sess_hdl, 0, pipe, handleOf(name), index, &value), 0);
      return {value.packets, value.bytes};
   }
   bool isSymmetric(const Kiln::String& name) const {
      bool symmetric = false;
      EXPECT_EQ(pipe_mgr_stat_tbl_symmetric_mode(0, counterHandleOf(name), &symmetric), 0);
      return symmetric;
   }
   std::vector<int> walk(const Kiln::String& table, U16 pipe) const {
      std::vector<int> handles;
      int handle = 0;
      const dev_target_t target{0, pipe};
      int status = pipe_mgr_get_first_entry_handle(sess_hdl, matchHandleOf(table), target, &handle);
      while (status == 0) {
         handles.push_back(handle);
         status = pipe_mgr_get_next_entry_handles(sess_hdl, matchHandleOf(table), target, handle, 1, &handle);
      }
      EXPECT_EQ(status, 6);
      EXPECT_EQ(handle, PIPE_MAT_ENT_HDL_NONE);
      return handles;
   }

   Kiln::Ptr<P4Program> program = Kiln::allocate<P4Program>();
   Chip* chip = nullptr;
   int callbacks = 0;
};

TEST_F(Tables, TheSoftwareCopyFollowsTheHardwareOnlyWithASyncOfThatPipe) {
   chip->tableEntryIs("packets", onPipe0, 3, {7, 99});
   chip->tableEntryIs("packets", onPipe1, 3, {8, 0});
   EXPECT_EQ(read("packets", onPipe0, 3), (CounterValue{0, 0}));
   sync("packets", onPipe1);
   EXPECT_EQ(read("packets", onPipe0, 3), (CounterValue{0, 0}));
   EXPECT_EQ(read("packets", onPipe1, 3), (CounterValue{8, 0}));
   sync("packets", onPipe0);
   EXPECT_EQ(read("packets", onPipe0, 3), (CounterValue{7, 0})) << "the table counts no bytes";
   EXPECT_EQ(callbacks, 2);
}

TEST_F(Tables, AWriteChangesBothCopiesAndLeavesWhatIsNotSyncedYet) {
   chip->tableEntryIs("both", allPipes, 1, {5, 50});
   ASSERT_EQ(ZelCountersIntf::counterWriteIndirect(sess_hdl, 0, allPipes, handleOf("both"), 2, {6, 60}), 0U);
   EXPECT_EQ(chip->tableEntry("both", allPipes, 2), (CounterValue{6, 60}));
   EXPECT_EQ(read("both", allPipes, 2), (CounterValue{6, 60}));
   EXPECT_EQ(read("both", allPipes, 1), (CounterValue{0, 0}));
   sync("both", allPipes);
   EXPECT_EQ(read("both", allPipes, 1), (CounterValue{5, 50}));
   EXPECT_EQ(read("both", allPipes, 2), (CounterValue{6, 60}));
}

TEST_F(Tables, ASyncTakesTheValuesOfItsCompletion) {
   chip->tableEntryIs("both", allPipes, 0, {1, 1});
   const dev_target_t target{0, allPipes};
   ASSERT_EQ(pipe_mgr_stat_database_sync(sess_hdl, target, handleOf("both"), countCallback, &callbacks), 0);
   chip->tableEntryIs("both", allPipes, 0, {2, 2});
   advance(0);
   EXPECT_EQ(read("both", allPipes, 0), (CounterValue{2, 2}));
}

TEST_F(Tables, ASymmetricTableReadsAsTheSumOverItsPipes) {
   chip->portAdd(0);
   chip->portAdd(128);
   chip->receive(0, frame(broadcastMac, 1), 3);
   chip->receive(128, frame(broadcastMac, 2), 4);
   sync("aclCount", allPipes);
   p4_pd_counter_value value{};
   ASSERT_EQ(ZelCountersIntf::counterReadDirect(sess_hdl, 0, allPipes, handleOf("aclCount"), 2, 0, &value),
             0U);
   EXPECT_EQ(value.packets, 7U);
   EXPECT_EQ(value.bytes, 7U * 60) << "without FCS";
   EXPECT_EQ(read("aclCount", onPipe1, 2).packets, 4U);
   EXPECT_EQ(read("aclCount", allPipes, 1).packets, 0U) << "no TCP frame came";
   ASSERT_EQ(ZelCountersIntf::counterWriteDirect(sess_hdl, 0, allPipes, handleOf("aclCount"), 2, {5, 5}), 0U);
   EXPECT_EQ(read("aclCount", allPipes, 2), (CounterValue{5, 5}));
}

TEST_F(Tables, TheEntryScopeOfAMatchTableDecidesTheModeOfItsCounters) {
   EXPECT_TRUE(isSymmetric("aclCount"));
   EXPECT_TRUE(isSymmetric("both"));
   EXPECT_FALSE(isSymmetric("packets"));
   ASSERT_EQ(pipe_mgr_tbl_set_property(sess_hdl, 0, matchHandleOf("acl"), 1, 1, 0), 0);
   ASSERT_EQ(pipe_mgr_tbl_set_property(sess_hdl, 0, matchHandleOf("policy"), 1, 1, 0), 0);
   EXPECT_FALSE(isSymmetric("aclCount"));
   EXPECT_FALSE(isSymmetric("both"));
   ASSERT_EQ(pipe_mgr_tbl_set_property(sess_hdl, 0, matchHandleOf("policy"), 1, 0, 0), 0);
   EXPECT_FALSE(isSymmetric("aclCount"));
   EXPECT_TRUE(isSymmetric("both"));
   fleet->chipRestart(0, true);
   EXPECT_TRUE(isSymmetric("aclCount")) << "as the program declares it";
}

TEST_F(Tables, ATableIsInitializedFromTheNthQueryOn) {
   chip->tableInitializedAfterIs("both", 2);
   std::vector<bool> answers;
   for (int i = 0; i < 4; ++i) {
      bool initialized = false;
      ASSERT_EQ(pipe_mgr_stat_tbl_symmetric_mode_initialized(0, counterHandleOf("both"), &initialized), 0);
      answers.push_back(initialized);
   }
   EXPECT_THAT(answers, ElementsAre(false, false, true, true));
}

TEST_F(Tables, EntriesAreWalkedByPipeAndAFullTableTakesNoMore) {
   S32 third = 0;
   S32 fourth = 0;
   S32 fifth = 0;
   ASSERT_EQ(chip->entryAdd("acl", {.vlanId = 9}, &third, onPipe1), 0);
   chip->capacityIs("acl", 3);
   EXPECT_EQ(chip->entryAdd("acl", {}, &fourth), 9);
   chip->capacityIs("acl", 4);
   ASSERT_EQ(chip->entryAdd("acl", {}, &fourth), 0);
   EXPECT_EQ(chip->entryAdd("acl", {}, &fifth), 9);
   EXPECT_THAT(walk("acl", allPipes), ElementsAre(1, 2, 3, 4));
   EXPECT_THAT(walk("acl", onPipe0), ElementsAre(1, 2, 4));
   EXPECT_THAT(walk("policy", onPipe0), ElementsAre());

   const dev_target_t target{0, allPipes};
   std::array<int, 4> next{};
   ASSERT_EQ(pipe_mgr_get_next_entry_handles(sess_hdl, matchHandleOf("acl"), target, 2, 4, next.data()), 0);
   EXPECT_THAT(next, ElementsAre(3, 4, -1, -1));
   EXPECT_EQ(SoftPd().counterDecodeMatch(0, 0, handleOf("aclCount"), third), "vlan 9");
   EXPECT_EQ(SoftPd().counterDecodeMatch(0, 5, handleOf("aclCount"), third), "");

   ASSERT_EQ(ZelCountersIntf::counterWriteDirect(sess_hdl, 0, allPipes, handleOf("aclCount"), third, {5, 5}),
             0U);
   ASSERT_EQ(chip->entryDel("acl", third), 0);
   EXPECT_EQ(chip->tableEntry("aclCount", allPipes, 3), (CounterValue{0, 0}))
        << "what it counted goes with it";
   EXPECT_EQ(chip->entryDel("acl", third), 6);
   EXPECT_EQ(ZelCountersIntf::counterWriteDirect(sess_hdl, 0, allPipes, handleOf("aclCount"), third, {5, 5}),
             6U);
   EXPECT_THAT(walk("acl", allPipes), ElementsAre(1, 2, 4));
   ASSERT_EQ(chip->entryAdd("acl", {}, &third), 0);
   EXPECT_EQ(third, 3);
   EXPECT_EQ(read("aclCount", allPipes, 3), (CounterValue{0, 0})) << "an entry starts from zero";
}

TEST_F(Tables, ARestartLeavesTheProgramsOwnEntriesAndTheHardwaresCounts) {
   S32 added = 0;
   ASSERT_EQ(chip->entryAdd("acl", {.vlanId = 9}, &added), 0);
   for (const U32 entry : {1U, static_cast<U32>(added)}) {
      chip->tableEntryIs("aclCount", allPipes, entry, {5, 500});
   }
   sync("aclCount", allPipes);
   fleet->chipRestart(0, true);
   EXPECT_THAT(walk("acl", allPipes), ElementsAre(1, 2));
   EXPECT_EQ(read("aclCount", allPipes, 1), (CounterValue{0, 0})) << "before the first sync";
   sync("aclCount", allPipes);
   EXPECT_EQ(read("aclCount", allPipes, 1), (CounterValue{5, 500}));
   EXPECT_EQ(read("aclCount", allPipes, static_cast<U32>(added)), (CounterValue{0, 0}));
}

TEST_F(Tables, AStartedReadKeepsItsValuesAndEndsTheOneBefore) {
   using namespace ZelCountersIntf;
   ASSERT_EQ(counterWriteIndirect(sess_hdl, 0, allPipes, handleOf("both"), 9, {1, 2}), 0U);
   ReadBuffer first;
   p4_pd_counter_value value{};
   ASSERT_EQ(counterReadIndirectStart(sess_hdl, 0, allPipes, handleOf("both"), &first), 0U);
   ASSERT_EQ(counterWriteIndirect(sess_hdl, 0, allPipes, handleOf("both"), 9, {3, 4}), 0U);
   chip->tableEntryIs("both", allPipes, 9, {5, 6});
   sync("both", allPipes);
   EXPECT_EQ(read("both", allPipes, 9), (CounterValue{5, 6}));
   ASSERT_EQ(counterReadIndirectMain(sess_hdl, 0, allPipes, handleOf("both"), 9, &first, &value), 0U);
   EXPECT_EQ(value.packets, 1U);
   EXPECT_EQ(value.bytes, 2U);
   EXPECT_EQ(counterReadIndirectMain(sess_hdl, 0, allPipes, handleOf("both"), 10, &first, &value), 3U);

   ReadBuffer second;
   U32 count = 0;
   ASSERT_EQ(counterReadDirectStart(sess_hdl, 0, onPipe0, handleOf("aclCount"), &second, &count), 0U);
   EXPECT_EQ(counterReadIndirectMain(sess_hdl, 0, allPipes, handleOf("both"), 9, &first, &value), 3U);
   EXPECT_EQ(counterReadDirectMain(sess_hdl, 0, onPipe0, handleOf("aclCount"), 1, count, &second, &value),
             0U);
   EXPECT_EQ(counterReadDirectEnd(sess_hdl), 0U);
   EXPECT_EQ(counterReadDirectMain(sess_hdl, 0, onPipe0, handleOf("aclCount"), 1, count, &second, &value),
             3U);
}

TEST_F(Tables, RefusesInvalidRequests) {
   using namespace ZelCountersIntf;
   const U32 both = handleOf("both");
   const U32 acl = handleOf("aclCount");
   const U32 packets = handleOf("packets");
   ReadBuffer buffer;
   p4_pd_counter_value value{};
   bool flag = false;
   U32 pipe = 0;
   const struct {
      const char* what;
      S64 status;
      S64 expected;
   } cases[] = {
        {"sync of an unknown table", counterHwSyncDirect(sess_hdl, 0, 0, 77, countCallback, &callbacks), 23},
        {"indirect sync of a direct table",
         counterHwSyncIndirect(sess_hdl, 0, 0, acl, countCallback, &callbacks), 23},
        {"sync of a match table without counters",
         counterHwSyncDirect(sess_hdl, 0, 0, matchHandleOf("policy"), countCallback, &callbacks), 23},
        {"sync by an indirect handle that no table has",
         pipe_mgr_stat_database_sync(sess_hdl, {0, 0}, both - 1, countCallback, &callbacks), 23},
        {"sync of a pipe that is none",
         counterHwSyncIndirect(sess_hdl, 0, 2, both, countCallback, &callbacks), 3},
        {"sync in another session",
         counterHwSyncIndirect(sess_hdl + 1, 0, 0, both, countCallback, &callbacks), 8},
        {"sync without callback", counterHwSyncIndirect(sess_hdl, 0, 0, both, nullptr, nullptr), 3},
        {"sync on an unknown device", counterHwSyncIndirect(sess_hdl, 1, 0, both, countCallback, &callbacks),
         3},
        {"read of all pipes of an asymmetric table",
         counterReadIndirectStart(sess_hdl, 0, allPipes, packets, &buffer), 3},
        {"write to all pipes of an asymmetric table",
         counterWriteIndirect(sess_hdl, 0, allPipes, packets, 0, value), 3},
        {"write beyond the end", counterWriteIndirect(sess_hdl, 0, 0, packets, 10, value), 3},
        {"write of an entry that is none", counterWriteDirect(sess_hdl, 0, allPipes, acl, -1, value), 3},
        {"mode of an unknown table", pipe_mgr_stat_tbl_symmetric_mode(0, both, &flag), 23},
        {"property of an unknown table", pipe_mgr_tbl_set_property(sess_hdl, 0, both, 1, 1, 0), 23},
        {"another property", pipe_mgr_tbl_set_property(sess_hdl, 0, matchHandleOf("acl"), 2, 1, 0), 17},
        {"another scope", pipe_mgr_tbl_set_property(sess_hdl, 0, matchHandleOf("acl"), 1, 2, 0), 3},
        {"a pipe above the last", lld_sku_map_pipe_id_to_phy_pipe_id(0, 2, &pipe), 3},
   };
   for (const auto& each : cases) {
      EXPECT_EQ(each.status, each.expected) << each.what;
   }
   advance(1);
   EXPECT_EQ(callbacks, 0) << "a refused request is never answered";
   ASSERT_EQ(counterReadDirect(sess_hdl, 0, allPipes, acl, 0, 0, &value), 0U);
   EXPECT_EQ(value.packets, 0U) << "the slot of no entry reads zero";

   EXPECT_THROW(chip->tableEntryIs("both", onPipe0, 0, {}), std::invalid_argument);
   EXPECT_THROW(chip->tableEntryIs("packets", allPipes, 0, {}), std::invalid_argument);
   EXPECT_THROW(chip->tableEntryIs("packets", onPipe0, 10, {}), std::invalid_argument);
   EXPECT_THROW(chip->tableEntryIs("nothing", onPipe0, 0, {}), std::invalid_argument);
   EXPECT_THROW(chip->capacityIs("acl", 5), std::invalid_argument);
   EXPECT_THROW(program->matchTableAdd({"acl", 1}), std::invalid_argument);
   EXPECT_THROW(program->counterTableAdd({.name = "second", .size = 4, .direct = true, .matchTable = "acl"}),
                std::invalid_argument);
}

TEST(StandardProgram, GivesEachTableItsOwnHandles) {
   const Kiln::Ptr<P4Program> program = P4Program::standard();
   EXPECT_EQ(program->zlTableIndex("pdpClassCount"), notFound) << "a counter table is not a match table";
   EXPECT_EQ(program->zlTableCounterField("nothing", ZlResourceInfo::ZlCounterFieldId::tableHandle),
             notFound);
   std::set<U32> handles;
   for (U32 id = 0; id < program->zlTableCountersNum(); ++id) {
      handles.insert(program->zlTableCounter(id)->tableHandle);
      handles.insert(program->zlTableCounter(id)->counterHandle);
      EXPECT_EQ(program->counterTableOfHandle(program->zlTableCounter(id)->tableHandle), id);
   }
   EXPECT_EQ(handles.size(), 2U * program->zlTableCountersNum());
   EXPECT_EQ(program->zlTableCounter(program->zlTableCountersNum()), nullptr);
}

class PipelineTables : public ZelTest::SoftChipRig {
 protected:
   PipelineTables() : chip(addChip()) {
      for (const U16 port : std::vector<U16>{0, 3, 5, 65, 66, 67, 128 + 5}) {
         chip.portAdd(port);
      }
   }
   U64 classCount(U16 pipe, unsigned slot, const char* name) const {
      for (const PdpClass& each : pdpClasses) {
         if (Kiln::String(each.name) == name) {
            return chip.tableEntry("pdpClassCount", pipe, slot * 32 + each.id).packets;
         }
      }
      return ~U64{0};
   }

   Chip& chip;
};

TEST_F(PipelineTables, AFrameMovesTheTablesItMatchesInThePipeOfItsPort) {
   FrameInfo bgp = frame(0x02, 0x04);
   bgp.wireLength = 104;
   bgp.etherType = etherTypeIpv4;
   bgp.ip.version = IpVersion::v4;
   bgp.ip.protocol = ipProtocolTcp;
   bgp.ip.destinationPort = 179;
   bgp.outerTag = {tpidCustomer, 30, 5, false};
   chip.receive(128 + 5, bgp, 10);
   EXPECT_EQ(classCount(1, 5, "bgp"), 10U);
   EXPECT_EQ(classCount(0, 5, "bgp"), 0U);
   EXPECT_EQ(chip.tableEntry("ingressPortCount", 1, 5), (CounterValue{10, 1000}));
   EXPECT_EQ(chip.tableEntry("vlanByteCount", allPipes, 30), (CounterValue{0, 1000}));
   EXPECT_EQ(chip.tableEntry("ingressAclCount", allPipes, 3), (CounterValue{10, 1000}));
   EXPECT_EQ(chip.tableEntry("ingressAclCount", allPipes, 5), (CounterValue{0, 0})) << "the first match wins";
   EXPECT_EQ(chip.tableEntry("l2DmacClassifyCount", allPipes, 6), (CounterValue{10, 1000}));
   EXPECT_EQ(chip.tableEntry("egressAclCount", 0, 1), (CounterValue{60, 0})) << "flooded to six ports";

   chip.accessVlanIs(0, 77);
   chip.receive(0, frame(broadcastMac, 0x08));
   EXPECT_EQ(chip.tableEntry("vlanByteCount", allPipes, 77), (CounterValue{0, 60}));
   EXPECT_EQ(chip.tableEntry("l2DmacClassifyCount", allPipes, 1), (CounterValue{1, 60}));
}

TEST_F(PipelineTables, ADropRuleCountsAndStopsTheFrame) {
   FrameInfo noise = frame(broadcastMac, 0x04);
   noise.ip.version = IpVersion::v4;
   noise.ip.protocol = ipProtocolUdp;
   noise.ip.destinationPort = 19;
   chip.receive(0, noise, 5);
   EXPECT_EQ(chip.tableEntry("qosPolicyDropCount", allPipes, 1), (CounterValue{5, 300}));
   EXPECT_EQ(chip.rmon(0, BF_RMON_FRAMES_RECEIVED_OK), 5U);
   EXPECT_EQ(chip.rmon(3, BF_RMON_FRAMES_TRANSMITTED_OK), 0U);
}

TEST_F(PipelineTables, ClassesAreToldByAddressTypeAndPort) {
   const auto ip = [](U8 protocol, U16 source, U16 destination) {
      FrameInfo made = frame(0x02, 0x04);
      made.ip.version = IpVersion::v4;
      made.ip.protocol = protocol;
      made.ip.sourcePort = source;
      made.ip.destinationPort = destination;
      return made;
   };
   const auto type = [](U16 etherType, U64 mac = 0x02) {
      FrameInfo made = frame(mac, 0x04);
      made.etherType = etherType;
      return made;
   };
   const struct {
      FrameInfo frame;
      const char* name;
   } cases[] = {
        {type(0x0806), "arp"},
        {type(0x8809), "lacp"},
        {type(0x88cc), "lldp"},
        {type(0x888e), "eapol"},
        {type(0x88f7), "ptp"},
        {type(38, 0x0180c2000000), "stp"},
        {type(60, 0x0180c2000015), "isis"},
        {type(0x88a2), "default"},
        {ip(6, 179, 50000), "bgp"},
        {ip(6, 50000, 80), "default"},
        {ip(17, 68, 67), "dhcp"},
        {ip(17, 9, 3784), "bfd"},
        {ip(17, 9, 319), "ptp"},
        {ip(17, 9, 4789), "vxlan"},
        {ip(17, 9, 53), "default"},
        {ip(1, 0, 0), "icmp"},
        {ip(58, 0, 0), "icmpv6"},
        {ip(2, 0, 0), "igmp"},
        {ip(89, 0, 0), "ospf"},
        {ip(103, 0, 0), "pim"},
        {ip(112, 0, 0), "vrrp"},
   };
   U64 before = 0;
   for (const auto& each : cases) {
      before = classCount(0, 3, each.name);
      chip.receive(3, each.frame);
      EXPECT_EQ(classCount(0, 3, each.name), before + 1) << each.name;
   }
}

TEST_F(PipelineTables, QueuesAreCountedWhereEachPortHasThem) {
   // Every port learns its own station, then sends one frame of each priority to each other.
   const std::vector<U16> ports = chip.ports();
   for (const U16 port : ports) {
      chip.receive(port, frame(2 * (U64{port} + 1), 2 * (U64{port} + 1)));
   }
   for (U8 priority = 0; priority < 8; ++priority) {
      for (const U16 port : {U16{5}, U16{65}, U16{66}, U16{67}}) {
         FrameInfo sent = frame(2 * (U64{port} + 1), 2);
         sent.outerTag = {tpidCustomer, 9, priority, false};
         chip.receive(0, sent, priority + 1U);
      }
   }
   FrameInfo group = frame(broadcastMac, 2);
   group.outerTag = {tpidCustomer, 9, 7, false};
   chip.receive(0, group, 100);
   const struct {
      U32 entry;
      U64 packets;
   } expected[] = {
        {168, 1},
        {175, 8 + 100}, // port 5: 8 queues from 168
        {65 * 32 + 8, 1},
        {65 * 32 + 15, 108}, // port 65
        {2128, 1},
        {2135, 8},
        {2136 + 5, 100}, // port 66: group frames have their own queues
        {2174, 1 + 2 + 3 + 4},
        {2175, 5 + 6 + 7 + 8 + 100}, // port 67: two queues
   };
   for (const auto& each : expected) {
      EXPECT_EQ(chip.tableEntry("egressPortQueueCount", 0, each.entry).packets, each.packets) << each.entry;
   }
}

TEST_F(PipelineTables, ACongestedPortDropsTheLowestQueuesFirstAndLosesNoFrameUncounted) {
   constexpr U64 offered = 1'000'000;
   constexpr U64 octets = 1504;
   chip.receive(3, frame(0x0a, 0x0a)); // port 3 runs at 10 Gb/s: the burst is 250 MB
   FrameInfo sent = frame(0x0a, 0x02);
   sent.wireLength = octets;
   const auto sentBy = [&](unsigned queue) {
      return chip.tableEntry("egressPortQueueCount", 0, 3 * 32 + 24 + queue).packets;
   };
   const auto dropsOf = [](U32 queue) {
      U64 drops = 0;
      EXPECT_EQ(bf_tm_q_drop_get(0, 0, 3, queue, &drops), 0);
      return drops;
   };
   chip.receive(0, sent, offered);
   const U64 lowDrops = dropsOf(0);
   EXPECT_GT(lowDrops, 0U);
   EXPECT_EQ(sentBy(0) + lowDrops, offered);
   chip.receive(0, sent, 10);
   EXPECT_EQ(dropsOf(0), lowDrops + 10) << "the port is as good as full";
   sent.ip.dscp = 7 << 3;
   sent.ip.version = IpVersion::v4;
   chip.receive(0, sent, 10);
   EXPECT_EQ(dropsOf(7), 0U) << "what is left is for higher queues";
   advance(0.2);
   sent.ip.dscp = 0;
   chip.receive(0, sent, 10);
   EXPECT_EQ(dropsOf(0), lowDrops + 10) << "the burst is over";
   EXPECT_EQ(chip.rmon(3, BF_RMON_FRAMES_TRANSMITTED_OK), sentBy(0) + sentBy(7));

   U64 drops = 0;
   EXPECT_EQ(bf_tm_q_drop_get(0, 1, 3, 0, &drops), 3) << "the port of another pipe";
   EXPECT_EQ(bf_tm_q_drop_get(0, 0, 3, 8, &drops), 3) << "a queue that the port doesn't have";
   EXPECT_EQ(bf_tm_q_drop_get(0, 0, 4, 0, &drops), 6) << "a port that does not exist";
   chip.queueIs(67, 1, {11, 12}, 13);
   EXPECT_EQ(chip.tableEntry("egressPortQueueCount", 0, 2175), (CounterValue{11, 12}));
   ASSERT_EQ(bf_tm_q_drop_get(0, 0, 67, 1, &drops), 0);
   EXPECT_EQ(drops, 13U);
   EXPECT_THROW(chip.queueIs(67, 2, {}, 0), std::invalid_argument);
}

} // namespace
} // namespace SoftChip
