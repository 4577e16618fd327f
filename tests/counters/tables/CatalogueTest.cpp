// What a chip does with its catalogue of counter tables when it comes up.
#include "counters/drops/PipeTmCounterSm.h"
#include "kiln/ActivityManager.h"
#include "kiln/RingLog.h"
#include "tests/support/StubSdkRig.h"
#include "zl/ZelSdk.h"

namespace {

using namespace ZelTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Catalogue : public StubSdkRig {
 protected:
   static std::vector<std::string> callsWith(const std::string& prefix) {
      std::vector<std::string> found;
      for (const std::string& call : StubSdk::sdk().calls) {
         if (call.rfind(prefix, 0) == 0) {
            found.push_back(call);
         }
      }
      return found;
   }
};

// Table 2 is initialized at the third check, the others at the first.
TEST_F(Catalogue, TableIsAskedAboutUntilItIsInitializedAndNeverAgain) {
   auto catalogue = makeCatalogue(0);
   StubSdk::Table late = makeTable("late", 0xA0, 4, false, packetsOnly, false);
   late.checksUntilInitialized = 2;
   catalogue->add(0, late);
   auto& chip = addChip(0, 0, catalogue);

   EXPECT_TRUE(chip.zelCountersSm()->initialized());
   EXPECT_TRUE(chip.initializedCounter(0));
   EXPECT_FALSE(chip.initializedCounter(2));
   EXPECT_FALSE(chip.perPipeCounter(2));
   EXPECT_FALSE(chip.initializedCounter().contains(99)) << "a look-up must not insert";
   advance(3.9);
   EXPECT_FALSE(chip.initializedCounter(2));
   advance(0.1);
   EXPECT_TRUE(chip.initializedCounter(2));
   EXPECT_TRUE(chip.perPipeCounter(2)) << "asymmetric";
   EXPECT_EQ(chip.zelCountersSm()->initClockTimeMin(), Kiln::never);
   EXPECT_EQ(callsWith("initialized? 0 10A0").size(), 3U);
   EXPECT_EQ(callsWith("initialized? 0 10D0").size(), 1U);
}

TEST_F(Catalogue, FailedQueryIsRetriedAndDoesNotStopTheOthers) {
   auto catalogue = makeCatalogue(0);
   StubSdk::sdk().statuses[{"initialized", 0x10D0, 0}] = 5;
   auto& chip = addChip(0, 0, catalogue);
   EXPECT_FALSE(chip.initializedCounter(0));
   EXPECT_TRUE(chip.initializedCounter(1));
   StubSdk::sdk().statuses.clear();
   advance(2.0);
   EXPECT_TRUE(chip.initializedCounter(0));
}

TEST_F(Catalogue, SymmetricTableForcedPerPipeStaysPerPipe) {
   auto catalogue = makeCatalogue(0);
   StubSdk::sdk().table(0, pdpHandle).symmetric = true;
   EXPECT_TRUE(addChip(0, 0, catalogue).perPipeCounter(0));
}

TEST_F(Catalogue, SimulationScopesTablesInOrderAndAsymmetryOverridesAnExplicitFalse) {
   const Environment simulation("SIMULATION_VMID", "1");
   auto catalogue = makeCatalogue(0);
   catalogue->add(0, makeTable("l2DmacClassifyCount", 0xA1, 4, true, packetsOnly, false));
   auto& chip = addChip(0, 0, catalogue);
   EXPECT_THAT(callsWith("property"),
               ElementsAre("property 7 0 B1 1 1 0", "property 7 0 B2 1 1 0", "property 7 0 B3 1 0 0"));
   EXPECT_TRUE(chip.perPipeCounter(2));

   StubSdk::sdk().table(0, 0xA1).symmetric = true;
   auto& symmetric = addChip(0, 0, catalogue);
   EXPECT_FALSE(symmetric.perPipeCounter(2));
   EXPECT_TRUE(symmetric.perPipeCounter().contains(2)) << "an explicit false";
}

TEST_F(Catalogue, QosPolicyTablesAreTouchedOnlyWithTheCapability) {
   addChip(0, 0, makeCatalogue(0));
   EXPECT_THAT(callsWith("property"), IsEmpty());

   systemStatus->chipCapabilitiesIs("stub", {false, false, false, true});
   auto catalogue = makeCatalogue(1);
   catalogue->addMatch("qosPolicyDropCounter", 0xB4);
   catalogue->add(1, makeTable("qosPolicyDropCount", 0xA2, 4, true, packetsOnly));
   auto& chip = addChip(1, 0, catalogue);
   EXPECT_THAT(callsWith("property"), ElementsAre("property 7 1 B4 1 1 0"));
   EXPECT_TRUE(chip.perPipeCounter(2));
}

TEST_F(Catalogue, PollersAreMadePerPipeAndType) {
   StubSdk::sdk().physicalPipeOffset = 1;
   auto& chip = addChip(0, 1, makeCatalogue(0));
   EXPECT_EQ(chip.pipeIntfQueueCounterSm().size(), 2U);
   std::vector<std::string> made;
   for (const auto& [key, sm] : chip.tm().pipeTmCounterSm()) {
      made.push_back(std::to_string(key.pipe) + "/" + std::to_string(key.counterType) + "/" +
                     std::to_string(sm->physicalPipe()));
      EXPECT_EQ(sm->pollingTimeMin(), 2.0);
   }
   EXPECT_THAT(made, ElementsAre("0/0/1", "0/1/1", "0/2/1", "0/6/1", "0/7/1", "0/4/1", "0/8/1", "1/0/2",
                                 "1/1/2", "1/2/2", "1/6/2", "1/7/2", "1/4/2", "1/8/2"));
   EXPECT_EQ(chip.pipeIntfQueueCounterSm(0)->pollingTimeMin(), 1.0) << "its table was not initialized yet";
}

TEST_F(Catalogue, PollerIsNotMadeAgainWithAnotherClock) {
   auto& chip = addChip(0, 0, makeCatalogue(0));
   const auto sm = chip.pipeIntfQueueCounterSm(0);
   EXPECT_EQ(chip.pipeIntfQueueCounterSmIs(0, sm->clock()), sm);
   const Kiln::Ptr<const Kiln::Clock> other = Kiln::allocate<Kiln::Clock>();
   EXPECT_THAT([&] { chip.pipeIntfQueueCounterSmIs(0, other); },
               ::testing::ThrowsMessage<std::invalid_argument>(::testing::MatchesRegex(
                    "Reinstantiating the pointer interface where constructor parameter "
                    "attribute _pollingClock has a different value of .+ than the "
                    "current value of .+ not allowed")));
}

TEST_F(Catalogue, ChipWithoutResourceInfoHasNoTableWork) {
   auto& chip = addChip(0, 3, nullptr);
   EXPECT_TRUE(chip.initialized());
   advance(10.0);
   EXPECT_THAT(StubSdk::sdk().calls, IsEmpty());
}

// A fault of the program or a refusal of the SDK, and the assertion that stops the process.
struct FatalCase {
   const char* assertion;
   bool simulation;
   bool qosPolicy;
   std::size_t parts; // how many of pdpClassCount and the match tables below are there
   void (*breakIt)(StubSdk::Catalogue& catalogue) = [](StubSdk::Catalogue&) {};
};

constexpr std::pair<const char*, U32> fatalMatches[] = {
     {"queueCounters", 0xB1}, {"pdpPolicy", 0xB2}, {"l2DmacClassify", 0xB3}};

const FatalCase fatalCases[] = {
     {"pdpClassCountId != 0xFFFFFFF", false, false, 0},
     {"tableIndex != 0xFFFFFFF", false, true, 1},
     {"qosPolicyDropCountId != 0xFFFFFFF", false, true, 1,
      [](StubSdk::Catalogue& c) { c.addMatch("qosPolicyDropCounter", 0xB4); }},
     {"queueCountersIndex != 0xFFFFFFF", true, false, 1},
     {"pdpPolicyIndex != 0xFFFFFFF", true, false, 2},
     {"pps == 0", true, false, 2,
      [](StubSdk::Catalogue&) {
         StubSdk::sdk().statuses[{"property", 0xB1, 0}] = 3;
      }},
     {"l2DmacClassifyIndex != 0xFFFFFFF", true, false, 3},
     {"l2DmacClassifyCountId != 0xFFFFFFF", true, false, 4},
     {"failed in ZelCounters, initializePerPipeCounters.*: Failed to map logical to physical pipe-id", false,
      false, 1,
      [](StubSdk::Catalogue&) {
         StubSdk::sdk().statuses[{"map", 0, 0}] = 3;
      }},
     {"physicalPipeId <= ZelId::ZelPipeId::max\\(\\)", false, false, 1,
      [](StubSdk::Catalogue&) { StubSdk::sdk().physicalPipeOffset = 4; }},
     {"pipe_mgr_stat_tbl_symmetric_mode\\( bc\\(\\)->deviceId\\(\\), info->counterHandle, &symmetric \\) == "
      "0",
      false, false, 1,
      [](StubSdk::Catalogue&) {
         StubSdk::sdk().statuses[{"symmetric", 0x10D0, 0}] = 5;
      }},
};

TEST_F(Catalogue, ProgramThatDoesNotFitTheLibraryStopsTheProcess) {
   for (const FatalCase& fatal : fatalCases) {
      SCOPED_TRACE(fatal.assertion);
      EXPECT_DEATH(
           {
              std::optional<Environment> simulation;
              if (fatal.simulation) {
                 simulation.emplace("SIMULATION_VMID", "1");
              }
              systemStatus->chipCapabilitiesIs("stub", {false, false, false, fatal.qosPolicy});
              auto catalogue = Kiln::allocate<StubSdk::Catalogue>();
              if (fatal.parts > 0) {
                 catalogue->add(0, makeTable("pdpClassCount", pdpHandle, 2336, false, packetsOnly));
              }
              for (std::size_t i = 1; i < fatal.parts; ++i) {
                 catalogue->addMatch(fatalMatches[i - 1].first, fatalMatches[i - 1].second);
              }
              fatal.breakIt(*catalogue);
              addChip(0, 0, catalogue);
           },
           fatal.assertion);
   }
}

// Whatever the agent's own service throws reaches the caller, and the half that was built is gone.
TEST_F(Catalogue, AServiceThatThrowsWhileAChipComesUpLeavesNothingOfIt) {
   class Throwing : public StubSdk::Catalogue {
    public:
      U32 zlTableCountersNum() const override {
         count();
         return Catalogue::zlTableCountersNum();
      }
      const ZlResourceInfo::ZlTableCounter* zlTableCounter(U32 id) const override {
         count();
         return Catalogue::zlTableCounter(id);
      }
      U32 zlTableCounterIndex(const Kiln::String& name) const override {
         count();
         return Catalogue::zlTableCounterIndex(name);
      }
      U32 zlTableCounterField(const Kiln::String& name,
                              ZlResourceInfo::ZlCounterFieldId field) const override {
         count();
         return Catalogue::zlTableCounterField(name, field);
      }
      mutable unsigned throwAt = 0;

    private:
      void count() const {
         if (throwAt != 0 && --throwAt == 0) {
            throw std::runtime_error("no catalogue today");
         }
      }
   };
   auto catalogue = Kiln::allocate<Throwing>();
   catalogue->add(0, makeTable("pdpClassCount", pdpHandle, 2336, false, packetsOnly, false));
   catalogue->add(0, makeTable("egressPortQueueCount", queueHandle, 4096, false, packetsAndBytes, false));
   catalogue->add(0, makeTable("late", 0xA0, 4, false, packetsOnly));
   StubSdk::sdk().table(0, 0xA0).checksUntilInitialized = 1000;
   const std::size_t clocks = Kiln::activityManagerClock()->armedCount();
   const U64 objects = Kiln::trackedObjectCount();
   unsigned failures = 0;
   for (bool isUp = false; !isUp; ++failures) {
      catalogue->throwAt = failures + 1;
      try {
         addChip(0, 1, catalogue);
         isUp = true;
      } catch (const std::runtime_error& error) {
         EXPECT_STREQ(error.what(), "no catalogue today");
         chipStatus.clear();
         EXPECT_EQ(Kiln::activityManagerClock()->armedCount(), clocks) << "at call " << failures;
         EXPECT_EQ(Kiln::trackedObjectCount(), objects) << "at call " << failures;
      }
   }
   EXPECT_GT(failures, 5U);
   // Nor does it end what polls from then on.
   StubSdk::sdk().inlineDefault = true;
   StubSdk::sdk().table(0, 0xA0).checksUntilInitialized = 20;
   for (unsigned call = 1; call <= 40; ++call) {
      catalogue->throwAt = call;
      advance(2.0);
   }
   catalogue->throwAt = 0;
   advance(100.0);
   EXPECT_TRUE(chips[0]->initializedCounter(2));
   takeSyncs();
   const U64 reads = StubSdk::sdk().reads;
   addPort("Ethernet1", 0);
   advance(4.0);
   EXPECT_FALSE(takeSyncs().empty());
   EXPECT_GT(StubSdk::sdk().reads, reads) << "of queues";
}

} // namespace
