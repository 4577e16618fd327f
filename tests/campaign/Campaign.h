// A run of the campaign: a whole agent in simulated time, to which things happen that a seed has drawn, beside the model that
// knows what should come of them.
#pragma once

#include "apps/zelagent/SwitchAgent.h"
#include "silo/TableReader.h"
#include "tests/campaign/Draws.h"
#include "tests/campaign/Model.h"
#include "tests/support/ShownRows.h"
#include "tests/support/SimulatedTime.h"
#include "tests/support/TemporaryFolder.h"

#include <memory>
#include <sstream>
#include <stdexcept>

namespace Campaign {

struct Settings {
   U64 seed = 1;
   double hours = 1;                     // simulated
   std::optional<std::vector<U64>> only; // these events, by number; all if not set
   bool isTold = false;                  // prints each event
};

// Something that must hold does not.
struct Failure : std::runtime_error {
   using std::runtime_error::runtime_error;
};

struct Result {
   U64 hash = 0; // of all that happened
   U64 events = 0;
   U64 faults = 0; // injected
   double hours = 0;
};

class Run : private SdkListener {
 public:
   explicit Run(const Settings& settings);
   ~Run() override;

   // Throws Failure.
   Result run();
   // The number of the event that happens, or happened last.
   static U64 lastEvent();
   // Of the library, which wait for answers that were lost.
   static std::size_t deadObjects();

 private:
   struct Kind;
   struct Readers;
   static const Kind kinds[];

   // SdkListener.
   U32 lifeOf(U8 device) const override { return model_.lifeOf(device); }
   void requested(const Request& request) override;
   void refused(const Request& request) override;
   void accepted(const Request& request) override;
   void answering(const Request& request) override;
   void answered(const Request& request, const bf_rmon_counter_array_t* values) override;

   static std::string chipName(U8 device) { return "Zel" + std::to_string(device); }
   static double now() { return ZelTest::SimulatedTime::now(); }
   void advance(double seconds);
   void runEvent(U64 number);
   void startAgent();
   void endAgent(bool isOrderly);
   void note(U64 value) { result_.hash = (result_.hash ^ value) * 0x100000001B3; }
   void note(double value);
   void fail(const std::string& what); // thrown when the event is over, as it may be within a callback
   // The text is made of the parts only where it does not hold.
   template <class... Parts>
   void expect(bool holds, const Parts&... what) {
      if (!holds) {
         std::ostringstream text;
         (text << ... << what);
         fail(text.str());
      }
   }
   template <class... Parts>
   void expectIs(U64 is, U64 expected, const Parts&... what) {
      expect(is == expected, what..., " is ", is, " and not ", expected);
   }
   void throwFailure() const;

   // What may happen.
   void traffic(Draws& draws);
   void jump(Draws& draws);
   void flip(Draws& draws);
   void resetBlock(Draws& draws);
   void queueTraffic(Draws& draws);
   void packets(Draws& draws);
   void queueTrouble(Draws& draws);
   void completions(Draws& draws);
   void someCompletions(Draws& draws);
   void deliverHeld(Draws& draws);
   void refuse(Draws& draws);
   void chip(Draws& draws);
   void restartChip(Draws& draws);
   void port(Draws& draws);
   void intervals(Draws& draws);
   void clear(Draws& draws);
   void quiet(Draws& draws);
   void wait(Draws& draws);
   void l3Intf(Draws& draws);
   void l3Traffic(Draws& draws);
   void l3Trouble(Draws& draws);
   void restart(Draws& draws);
   void damage(Draws& draws);
   void assertion(Draws& draws);
   void command(Draws& draws);
   void fake(Draws& draws);

   void addChip(U8 device);
   void deleteChip(U8 device);
   void addPort(const std::string& intf, Place place);
   void comesPort(const std::string& intf, Place place);
   void goesPort(const std::string& intf);
   void answeredOnce(const Request& request);
   void beginCounted(Family family, const std::string& name, Place place, bool isMoved);
   void beginPort(const std::string& intf, Place place, bool isMoved);
   void beginChip(U8 device);
   void clearedCounted(const std::string& clear, bool isExact);
   const Chip* chipOf(Family family, const std::string& name) const;
   // Null, or an interface that has a port.
   const std::string* drawPort(Draws& draws) const;
   std::optional<Place> drawFreePlace(Draws& draws) const;
   static bool isPolled(const std::string& intf, const Port& port) {
      return !intf.starts_with("Internal") || intf == "Internal" + std::to_string(port.place.device + 1);
   }
   std::string provoke(Draws& draws, U8 device, std::function<void()>& how);
   void leaveHalfWritten();
   void calm();
   void command(const std::string& clear);
   std::string ask(const std::string& command);

   // What must hold.
   void checkPort(const std::string& intf);
   void checkQueues(const std::string& intf);
   void checkSchedulers();
   void checkCounts();
   void checkTables();
   void checkViews(std::string_view only = {});
   void checkShownMac(const ZelTest::Json& table);
   void checkHistory(bool isCalm);
   void checkEvents();
   void checkFresh(double since);
   void checkShownCounted(Family family, const ZelTest::Json& document, bool isCalm);
   template <class Record>
   void checkCountedRecords(Silo::TableReader<Record>& reader, Family family, bool isCalm);
   void checkCounted(bool isCalm);
   void checkCalmCounted();
   void checkMetrics(bool isCalm);
   void checkL3();
   void checkL3Records(bool isCalm);
   void passed(); // a pass of the manager has begun

   const Settings settings_;
   const ZelTest::SimulatedTime time_;
   const ZelTest::TemporaryFolder folder_;
   const bool isSimulation_ = settings_.seed % 4 == 2; // for the library
   bool isCleanedUp_ = false;                          // the last agent, as that of a simulation
   ZelAgent::SwitchAgentConfig config_;
   Model model_;
   std::unique_ptr<ZelAgent::SwitchAgent> agent_;
   std::unique_ptr<Readers> readers_;
   double pollingInterval_ = 2.0;
   double passDue_ = 0;        // when the manager's clock is due, at the latest
   U64 lost_ = 0;              // answers, so far
   double damagedAt_ = -never; // some table
   bool isMended_ = true;      // since then
   bool wasDamaged_ = false;   // since the events were looked at
   bool wasMended_ = false;    // some table, ever
   U64 newestEvent_ = 0;       // then
   const std::size_t deadBefore_ = deadObjects();
   std::map<std::pair<U32, Request::Kind>, U32> unanswered_; // by life
   S64 strays_ = 0;                                          // answers that may have passed for others'
   static constexpr double mendingTime = 130;                // seconds, after which everything was read again
   unsigned folders_ = 0;
   std::map<U16, int> shortages_; // of a VLAN: messages of its beginning less those of its end
   U64 wrapMessages_ = 0;
   std::string failure_;
   Result result_;
};

} // namespace Campaign
