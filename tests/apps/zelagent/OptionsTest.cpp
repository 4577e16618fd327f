// The agent's command line, and the chips and ports that follow from it.
#include "apps/zelagent/Options.h"

#include "silo/TableReader.h"
#include "tests/apps/zelagent/AgentRig.h"

#include <gmock/gmock.h>

namespace {

using Kiln::String;
using ZelAgent::Options;
using ZelAgent::parseOptions;

using Arguments = std::vector<const char*>;

TEST(Options, TakesEachOptionInEitherForm) {
   const Arguments arguments = {"--chips",          "8",          "--pipes=4",
                                "--ports",          "256",        "--capabilities",
                                "vxlan,vrf-nat",    "--seed",     "18446744073709551615",
                                "--traffic=a.pcap", "--socket",   "/s",
                                "--silo=/d",        "--hardware", "/h",
                                "--scenario",       "-",          "--polling=0.25",
                                "--read-socket",    "/r",         "--read-group=77777"};
   const Options options = parseOptions(arguments);
   EXPECT_EQ(options.agent.chips, 8U);
   EXPECT_EQ(options.agent.pipes, 4U);
   EXPECT_EQ(options.agent.ports, 256U);
   EXPECT_EQ(options.agent.capabilities, (ZelSystem::ChipCapabilities{false, true, true, false}));
   EXPECT_EQ(options.agent.seed, ~U64{0});
   EXPECT_EQ(options.traffic, Options::Traffic::capture);
   EXPECT_EQ(options.captureFile, "a.pcap");
   EXPECT_EQ(options.socketPath, "/s");
   EXPECT_EQ(options.readSocketPath, "/r");
   EXPECT_EQ(options.readGroup, gid_t{77777});
   EXPECT_EQ(parseOptions(Arguments{"--read-group", "root", "--read-socket", "/r"}).readGroup, gid_t{0});
   EXPECT_EQ(options.agent.siloFolder, "/d");
   EXPECT_EQ(options.agent.hardwareFile, "/h");
   EXPECT_EQ(options.scenario, "-");
   EXPECT_EQ(options.agent.pollingInterval, 0.25);
   EXPECT_EQ(parseOptions(Arguments{"--capabilities", "none"}).agent.capabilities,
             ZelSystem::ChipCapabilities());
}

TEST(Options, RefusesInvalidOptions) {
   const std::vector<std::pair<Arguments, String>> cases = {
        {{"--chips", "9"}, "--chips '9': expected 1 to 8"},
        {{"--chips", "0"}, "--chips '0': expected 1 to 8"},
        {{"--chips", "+1"}, "--chips '+1': expected 1 to 8"},
        {{"--chips", "1x"}, "--chips '1x': expected 1 to 8"},
        {{"--pipes=5"}, "--pipes '5': expected 1 to 4"},
        {{"--ports", "129"}, "--ports 129: expected at most 128 on 2 pipes"},
        {{"--ports", "4294967297"}, "--ports '4294967297': expected 0 to 256"},
        {{"--seed", "-1"}, "--seed '-1': expected a number from 0 upward"},
        {{"--polling", "0"}, "--polling '0': expected a time from 0.001 to 1000000 seconds, as 2 or 0.5"},
        {{"--polling", "nan"}, "--polling 'nan': expected a time from 0.001 to 1000000 seconds, as 2 or 0.5"},
        {{"--polling", "1e7"}, "--polling '1e7': expected a time from 0.001 to 1000000 seconds, as 2 or 0.5"},
        {{"--chips"}, "--chips needs a value: switching chips, 1 to 8 (1)"},
        {{"--chips="}, "--chips needs a value: switching chips, 1 to 8 (1)"},
        {{"--chips", "--ports", "4"}, "--chips needs a value before '--ports': switching chips, 1 to 8 (1)"},
        {{"--read-group", "no such"},
         "--read-group 'no such': expected the name of a group on this machine, or a number"},
        {{"--read-group", "root"}, "--read-socket and --read-group go together: give both, or neither"},
        {{"--read-socket", "/r"}, "--read-socket and --read-group go together: give both, or neither"},
        {{"--socket", "/s", "--read-socket", "/s", "--read-group", "0"},
         "--read-socket '/s': expected another path than that of --socket"},
        {{"--realtime"},
         "--realtime is for a scenario, and an agent without one runs in real time: add --scenario FILE, or "
         "leave out --realtime"},
        {{"--scenario", "-", "--realtime", "--traffic", "synthetic"},
         "--traffic does not go with --realtime: put 'traffic on' or 'replay INTF FILE' into the scenario"},
        {{"--scenario", "-", "--realtime", "--traffic", "host"},
         "--traffic host does not go with a scenario: leave out --scenario"},
        {{"--help=x"}, "--help takes no value"},
        {{"--capabilities", "vlan,"},
         "--capabilities 'vlan,': expected none, or a list out of vlan,vxlan,vrf-nat,qos-policy"},
        {{"--traffic", "loud"},
         "--traffic 'loud': expected synthetic, none, host, or the path of a capture file"},
        {{"--verbose"}, "unknown option '--verbose': 'zelagent --help' lists them all"},
        {{"scenario"}, "unknown option 'scenario': 'zelagent --help' lists them all"},
   };
   for (const auto& [arguments, error] : cases) {
      EXPECT_THAT([&given = arguments] { parseOptions(given); },
                  testing::ThrowsMessage<std::invalid_argument>(error));
   }
   EXPECT_THROW(parseOptions(Arguments{"--trace", "ZelCounters"}), std::invalid_argument);
}

using SwitchAgent = ZelTest::AgentRig;

TEST_F(SwitchAgent, TellsReadersHowOftenItPolls) {
   namespace Tables = Silo::Interface;
   auto& agent = start({.pollingInterval = 5.0});
   const auto intervals = [&] {
      const auto of = [](auto&& reader) { return reader.state().pollingInterval; };
      return std::vector<double>{
           of(Silo::TableReader<Tables::IntfCounters>(agent.tableStore(), Tables::TableName::intfCounters)),
           of(Silo::TableReader<Tables::L3IntfCounters>(agent.tableStore(),
                                                        Tables::TableName::vlanIntfCounters)),
           of(Silo::TableReader<Tables::L3IntfCounters>(agent.tableStore(),
                                                        Tables::TableName::subIntfCounters)),
           of(Silo::TableReader<Tables::IntfQueueCounters>(agent.tableStore(),
                                                           Tables::TableName::intfQueueCounters))};
   };
   EXPECT_EQ(intervals(), (std::vector<double>{2.0, 2.0, 2.0, 2.0})) << "until the first pass has ended";
   advance(2.0);
   EXPECT_EQ(intervals(), (std::vector<double>{5.0, 5.0, 2.0, 2.0}));
   agent.countersMgr().sdkPollingIntervalIs(0.5);
   advance(4.5);
   EXPECT_EQ(intervals(), (std::vector<double>{5.0, 5.0, 2.0, 2.0})) << "a pass is due in half a second";
   advance(0.5);
   EXPECT_EQ(intervals(), (std::vector<double>{0.5, 0.5, 0.5, 2.0}));
}

TEST_F(SwitchAgent, SpreadsPortsEvenlyOverThePipesAndCountsOnAcrossChips) {
   start({.chips = 2, .pipes = 4, .ports = 6});
   const std::vector<U16> devicePorts = {0, 1, 128, 129, 256, 384};
   for (unsigned i = 0; i < 12; ++i) {
      const auto record =
           agent_->systemStatus().portInfo(Pelt::IntfId(Kiln::Name("Ethernet" + std::to_string(i + 1))));
      EXPECT_EQ(record.devId, i / 6);
      EXPECT_EQ(record.devicePort, devicePorts[i % 6]) << i;
   }
   EXPECT_EQ(agent_->systemStatus().portInfo().size(), 12U);
}

TEST_F(SwitchAgent, RefusesInvalidPortsAndChips) {
   start({.chips = 1, .pipes = 2, .ports = 2});
   const auto lock = Kiln::ActivityLockAnchor::lock();
   const auto add = [&](const char* intf, const char* chip, U16 port) {
      agent_->portAdd(Pelt::IntfId(intf), chip, port);
   };
   EXPECT_THROW(add("Ethernet9", "Zel0", 68), std::invalid_argument) << "slot";
   EXPECT_THROW(add("Ethernet9", "Zel0", 256), std::invalid_argument) << "pipe";
   EXPECT_THROW(add("Ethernet9", "Zel1", 1), std::invalid_argument) << "chip";
   EXPECT_THROW(add("Ethernet9", "Zel0", 0), std::invalid_argument) << "taken";
   EXPECT_THROW(add("Ethernet1", "Zel0", 1), std::invalid_argument) << "has a port";
   EXPECT_NO_THROW(add("Ethernet9", "Zel0", 128 + 67));
   for (const char* name : {"Zel8", "Zel", "Zel01", "zel1", "Zel-1", "Zel1 "}) {
      EXPECT_THROW(agent_->chipAdd(name), std::invalid_argument) << name;
   }
   EXPECT_EQ(agent_->countersMgr().zelCounters().size(), 1U);
}

} // namespace
