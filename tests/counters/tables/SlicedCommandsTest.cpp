// What becomes of shows and clears when others get in between their slices.
#include "agent/AgentCommand.h"
#include "counters/ZelCountersMgr.h"
#include "tests/support/LockWaiter.h"
#include "tests/support/StubSdkRig.h"

#include <map>
#include <optional>

namespace {

using namespace ZelTest;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr U32 handle = 0xABCDEF;
constexpr U32 entries = 10000; // more than are read in one go

class SlicedCommands : public StubSdkRig {
 protected:
   SlicedCommands() {
      StubSdk::sdk().inlineDefault = true;
      refuseQueueSyncs();
      systemStatus->hasNotificationActiveIs(true);
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr = ZelCounter::zelCountersMgrFactory(systemStatus, Kiln::allocate<ZelCounter::CountersMounts>(),
                                              Kiln::allocate<Vex::VexCommonSmData>(), commands, tm, tmClear,
                                              dropData);
   }
   ~SlicedCommands() override {
      waiter.reset();
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr = nullptr;
   }

   void addChipWith(int dev, StubSdk::Table table) {
      auto catalogue = makeCatalogue(dev);
      for (U32 i = 0; i < table.info.size; ++i) {
         table.values[{ZelId::ZelPipeId::allPipes(), i}] = {1, 0};
         table.values[{U16{0}, i}] = {1, 0};
      }
      catalogue->add(dev, std::move(table));
      chipStatus[dev] = Kiln::allocate<ZelSlice::ChipStatus>();
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr->addChip(static_cast<ZelId::ZelDevId>(dev), "Zel" + std::to_string(dev), {"stub"}, 7,
                   Kiln::allocate<StubSdk::Pd>(), catalogue, chipStatus[dev]);
      advance(2.0);
   }

   // When the SDK reads or writes this entry, another thread comes, and has the lock when it is given up next.
   void atEntry(U32 key, std::function<void()> work, int dev = 3) {
      StubSdk::sdk().onEntry = [this, key, dev, work = std::move(work)](int of, U32 entry) {
         if (of == dev && entry == key && !waiter) {
            waiter.emplace(work);
         }
      };
   }

   std::string run(std::vector<Kiln::String> words) {
      return printed([&](U32 fd) {
         const auto lock = Kiln::ActivityLockAnchor::lock();
         EXPECT_EQ(
              commands->agentCommandCallback("ZelCountersCli")->command(words, static_cast<int>(fd)).error,
              "");
      });
   }

   static std::size_t rowsOf(const std::string& text) {
      std::size_t rows = 0;
      for (auto at = text.find("\n{\"Index\":"); at != std::string::npos;
           at = text.find("\n{\"Index\":", at + 1)) {
         ++rows;
      }
      return rows;
   }
   static std::size_t zeroes(U16 pipe) {
      std::size_t count = 0;
      for (const auto& [place, value] : StubSdk::sdk().table(3, handle).values) {
         count += place.first == pipe && value.packets == 0 ? 1 : 0;
      }
      return count;
   }

   const NoSlices noSlices;
   const Kiln::Ptr<Agent::AgentCommandRequestDirSm> commands =
        Kiln::allocate<Agent::AgentCommandRequestDirSm>();
   Kiln::Ptr<ZelCounter::ZelCountersMgr> mgr;
   std::optional<LockWaiter> waiter;
};

TEST_F(SlicedCommands, AChipThatGoesEndsItsPartOfTheAnswerOnly) {
   for (const int gone : {3, 4}) {
      addChipWith(3, makeTable("tested", handle, entries, false, packetsOnly));
      addChipWith(4, makeTable("tested", handle, entries, false, packetsOnly));
      U64 readsWhenGone = 0;
      atEntry(100, [&] {
         mgr->deleteChip("Zel" + std::to_string(gone));
         readsWhenGone = StubSdk::sdk().reads;
      });
      const U64 before = StubSdk::sdk().reads;
      const std::string answer = run({"show", "table", "tested", "json"});
      const std::string other = answer.substr(answer.find("{\"chip\":\"Zel4\""));
      EXPECT_THAT(answer, HasSubstr("\"notes\":[\"Chip Zel" + std::to_string(gone) +
                                    " went while this was shown\"]}"));
      EXPECT_EQ(answer.substr(answer.size() - 3), "]}\n");
      EXPECT_EQ(rowsOf(other), gone == 4 ? 0 : entries);
      EXPECT_EQ(rowsOf(answer) - rowsOf(other), gone == 3 ? readsWhenGone - before : entries);
      EXPECT_EQ(StubSdk::sdk().reads - before, rowsOf(answer)) << "nothing is asked of a chip that is gone";
      waiter.reset();
   }
}

TEST_F(SlicedCommands, AClearOfAChipThatGoesEndsWithIt) {
   addChipWith(3, makeTable("tested", handle, entries, false, packetsOnly));
   atEntry(100, [&] { mgr->deleteChip("Zel3"); });
   EXPECT_EQ(run({"clear", "table", "tested"}), "Chip Zel3 went while this was cleared\n");
   EXPECT_EQ(zeroes(ZelId::ZelPipeId::allPipes()), 112U) << "up to the end of the slice";
}

TEST_F(SlicedCommands, SyncsAndClearsOfWhatIsShownAreTold) {
   addChipWith(3, makeTable("tested", handle, entries, false, packetsOnly));
   StubSdk::sdk().inlineDefault = false;
   advance(2.0);
   atEntry(100, [] { StubSdk::sdk().deliverAll(); });
   const std::string synced = run({"show", "table", "tested"});
   EXPECT_THAT(synced,
               HasSubstr("\nTables of chip Zel3 were synced while tested was shown: its rows may be from "
                         "before and after\n"));
   waiter.reset();
   atEntry(100, [&] { mgr->zelCounters(3)->clearTableCounters(0, 2, ZelId::ZelPipeId::allPipes()); });
   const std::string cleared = run({"show", "table", "tested"});
   EXPECT_THAT(cleared,
               AllOf(Not(HasSubstr("synced")),
                     HasSubstr("\ntested was cleared while it was shown: its rows may be from before "
                               "and after\n")));
   waiter.reset();
   StubSdk::sdk().onEntry = {};
   EXPECT_THAT(run({"show", "table", "tested"}), Not(HasSubstr("while"))) << "it is not cleared any more";

   StubSdk::sdk().inlineDefault = true;
   addChipWith(4, makeTable("later", handle, 1000, false, packetsOnly));
   atEntry(
        999, [&] { mgr->zelCounters(4)->clearTableCounters(0, 2, ZelId::ZelPipeId::allPipes()); }, 4);
   EXPECT_THAT(run({"show", "table", "later", "json"}), HasSubstr("\"cleared-by\":null"))
        << "its values were read before the clear";
   EXPECT_THAT(run({"show", "table", "later", "json"}), Not(HasSubstr("\"cleared-by\":null")));
}

TEST_F(SlicedCommands, EntriesThatGoTakeNoOthersAlong) {
   StubSdk::Table table = makeTable("tested", handle, entries, true, packetsOnly);
   for (U32 i = 0; i < entries; ++i) {
      table.entries.push_back(static_cast<int>(i));
   }
   addChipWith(3, table);
   const auto& left = StubSdk::sdk().table(3, handle).entries;
   const auto cut = [&](int first, int last) {
      std::erase_if(StubSdk::sdk().table(3, handle).entries,
                    [&](int entry) { return entry >= first && entry < last; });
   };
   atEntry(4000, [&] { cut(3000, 4200); }); // with the last one of the block
   const std::string text = run({"show", "table", "tested"});
   EXPECT_THAT(text, HasSubstr("\nEntries of tested went while it was shown\n"));
   std::map<int, int> shown; // how often, by entry
   for (auto at = text.find("\nmatch "); at != std::string::npos; at = text.find("\nmatch ", at + 1)) {
      ++shown[std::stoi(text.substr(at + 7, 6))];
   }
   for (const int entry : left) {
      ASSERT_EQ(shown[entry], 1) << entry;
   }
   waiter.reset();
   atEntry(100, [&] { cut(0, 200); });
   run({"clear", "table", "tested"});
   for (const int entry : left) {
      ASSERT_EQ(StubSdk::sdk().table(3, handle).values.at({ZelId::ZelPipeId::allPipes(), entry}).packets, 0U);
   }
}

TEST_F(SlicedCommands, NobodySeesDropsThatAreClearedInPart) {
   addChipWith(3,
               makeTable("ingressPortDropCount", handle, 2 * ZlDrop::tableSize, false, packetsOnly, false));
   std::size_t seen = 0;
   atEntry(0, [&] { seen = zeroes(0); });
   run({"clear", "table", "ingressPortDropCount"});
   EXPECT_EQ(seen, ZlDrop::tableSize);
   EXPECT_EQ(zeroes(0), 2 * ZlDrop::tableSize);
}

TEST_F(SlicedCommands, ClassesAreShownAsOfOneMoment) {
   addChipWith(3, makeTable("tested", handle, 1, false, packetsOnly));
   auto& chip = *mgr->zelCounters(3);
   auto& values = StubSdk::sdk().table(3, pdpHandle).values;
   for (U16 port = 0; port < 3; ++port) {
      chipStatus[3]->portToIntfIdIs(port, addPort("Ethernet" + std::to_string(port), port, 3));
      values[{U16{0}, ZlPort::pdpEntry(port, 0)}] = {7, 0};
   }
   const auto other = [&] { // shows and clears
      values[{U16{0}, ZlPort::pdpEntry(2, 0)}] = {9, 0};
      chip.fetchPdpCounters();
      chip.clearAllPdpIntfCounters(0);
   };
   const std::string text = printed([&](U32 fd) {
      auto lock = Kiln::ActivityLockAnchor::lock();
      waiter.emplace(other);
      commands->agentCommandCallback("ZelCountersCli")->command({"show", "pdp"}, static_cast<int>(fd));
   });
   EXPECT_TRUE(chip.pdpCountersClear(Pelt::IntfId("Ethernet2"))->classCount(ZelQos::PdpClassId()) == 9U);
   for (const char* row : {"Ethernet0", "Ethernet1", "Ethernet2"}) {
      EXPECT_THAT(text, testing::ContainsRegex(std::string(row) + " +default +7\n"));
   }
   EXPECT_THAT(text, Not(HasSubstr("cleared")));
}

TEST_F(SlicedCommands, PortsThatGoAreLeftOutAndTold) {
   StubSdk::sdk().takesPortReads = true;
   addChipWith(3, makeTable("tested", handle, 1, false, packetsOnly));
   for (U16 port = 1; port <= 9; ++port) {
      addPort("Ethernet" + std::to_string(port), port, 3);
   }
   std::string text;
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      mgr->zelCounters(3)->requestHwCountersPolling();
      for (const StubSdk::PortRead& read : StubSdk::sdk().portReads) {
         read.deliver(7);
      }
      waiter.emplace([&] { systemStatus->portInfoDel(Pelt::IntfId("Ethernet5")); });
      text = printed([&](U32 fd) {
         commands->agentCommandCallback("ZelCountersCli")->command({"show", "mac"}, static_cast<int>(fd));
      });
   }
   EXPECT_THAT(text, AllOf(HasSubstr("Intf Ethernet4 "), Not(HasSubstr("Intf Ethernet5 ")),
                           HasSubstr("Intf Ethernet9 "),
                           HasSubstr("\nPorts of chip Zel3 changed while this was shown\n")));
}

} // namespace
