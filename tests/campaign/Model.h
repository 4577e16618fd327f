// What the hardware really counted, and what has to be published of it. Written from the documents, and shares no code with
// the library.
#pragma once

#include "tests/campaign/SdkTap.h"

#include <array>
#include <deque>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Campaign {

constexpr double never = std::numeric_limits<double>::infinity();
constexpr std::size_t rmonCount = 89;
constexpr std::size_t fieldCount = 69;
constexpr std::size_t wrapChecked = 36; // the first so many fields
constexpr std::size_t queueLimit = 17;

struct Place {
   U8 device = 0;
   U16 port = 0;
   bool operator==(const Place&) const = default;
   bool operator<(const Place& other) const {
      return device != other.device ? device < other.device : port < other.port;
   }
   unsigned pipe() const { return port / 128; }
   unsigned slot() const { return port % 128; }
   unsigned queues() const { return slot() == 66 ? 14 : slot() == 67 ? 2 : 8; }
};

using QueueCount = std::array<U64, 3>; // packets, bytes, drops

struct Hardware {
   std::array<U64, rmonCount> mac{};
   std::array<QueueCount, queueLimit> queues{};
   std::array<QueueCount, queueLimit> copy{}; // the SDK's; drops are not copied
};

// What the first reading of a source counts.
enum class Begin { step, whole, nothing };

// Which source a count follows.
struct Trail {
   std::optional<std::pair<Place, U32>> last; // place and life
   std::optional<Begin> kept;                 // an earlier agent counted
   bool isExchanged = false;                  // in the last step

   // `counted`: the places where somebody was counted, in this life.
   Begin next(Place place, U32 life, std::set<U16>& counted);
};

// Values that fall together.
template <std::size_t n>
struct Meter {
   std::array<U64, n> last{};
   std::array<U64, n> lift{};
   bool isMarked = false; // in the last step
   std::array<U64, n> read(const std::array<U64, n>& values, Begin begin);
};

// Something that has to be found among the events.
struct Happening {
   double time;
   std::string kind;
   std::string where;
};

struct Port {
   Place place;
   double createdTime = 0;

   bool isPublished = false;
   bool isSure = true;  // false: somebody damaged the table since it was published
   bool isFirst = true; // no step of this agent yet
   std::array<U64, fieldCount> reading{};
   std::array<U64, fieldCount> totals{};
   std::array<U64, fieldCount> deltas{};
   std::array<bool, fieldCount> isAbsorbed{};
   double sampleTime = -never;
   double interval = 0;
   double discontinuityTime = 0;
   U64 suspects = 0;
   Trail trail;
   std::optional<std::array<U64, fieldCount>> cleared;
   std::deque<std::pair<double, std::array<U64, 9>>> history; // the newest samples that may be kept

   struct Queues {
      bool isReported = false;
      bool isSure = true;
      U32 present = 0;
      bool isStored = false; // read at this place, in this life of the chip
      std::array<QueueCount, queueLimit> totals{};
      std::array<Meter<2>, queueLimit> sent;
      std::array<Meter<1>, queueLimit> dropped;
      double sampleTime = -never;
      double discontinuityTime = 0;
      Trail trail;
      std::optional<std::array<QueueCount, queueLimit>> cleared;
   } queues;
};

// An L3 interface, and what was counted for it while it was there.
struct L3Intf {
   U16 vlan = 0;
   double createdTime = 0;
   bool isLossy = false;         // some of that nobody can know
   std::array<U64, 4> counted{}; // octets and packets in, and out
   std::array<U64, 4> seen{};    // the published totals, last
   std::array<U64, 2> nat{};     // packets and bytes
   std::array<U64, 2> natSeen{};
};

// The MAC counters of an interface, as the chip's view has them.
struct Shown {
   U16 port = 0;
   double readTime = 0;
   std::array<U64, rmonCount> last{};
   std::array<U64, rmonCount> clear{};
};

// What is read place by place. Its health is counted by chip, the rest by interface or by pipe.
enum class Family : U8 { drops, classes, stages, pipeDrops, trafficManager, health };

struct Tally {
   U64 total = 0; // the most that the record may have
   U64 seen = 0;  // that it had
   U64 shown = 0; // the most that the view may show
};

struct Counted {
   std::map<std::size_t, std::array<Tally, 3>> tallies; // by place
   double createdTime = 0;
   bool isTotalKnown = true; // exactly, once nothing is under way
   bool isShownKnown = true;
};

struct Chip {
   U32 life = 0;
   U32 state = 8;
   U32 seuCount = 0;
   U32 overflowCount = 0;
   U32 pending = 0;      // syncs of tables
   bool hasLost = false; // one of them is never answered
   std::set<U16> macCounted;
   std::set<U16> queuesCounted;
   struct Pipe {
      bool isOutstanding = false;
      bool isStopped = false;
      bool hasLost = false;
   };
   std::map<U16, Pipe> pipes;
   std::map<std::string, Shown> shown;
   std::set<U16> wanted;      // VLANs that are to be counted
   bool hasLeftovers = false; // it may have refused to delete an entry
};

class Model {
 public:
   // By field: which RMON counter fills it.
   explicit Model(std::array<unsigned, fieldCount> rmonOfField) : rmonOfField_(rmonOfField) {}

   std::map<U8, Chip> chips;           // that are up
   std::map<std::string, Port> ports;  // by interface
   std::map<Place, Hardware> hardware; // it outlives ports
   std::map<std::string, L3Intf> l3;
   std::map<std::pair<Family, std::string>, Counted> counted;
   std::array<double, 8> syncTimes{}; // by device, when a sync of a table was answered last
   std::map<U16, L3Intf> vlans;       // what was ever counted of a VLAN, for whomever
   bool mayRefuseDeletions = false;   // chips, of entries
   U64 wrapReadings = 0;              // with at least one wrap
   std::vector<Happening> happenings; // since somebody took them

   U32 lifeOf(U8 device) const;
   U32 lives() const { return lives_; } // so far
   void chipCame(U8 device, unsigned pipes);
   void chipWent(U8 device);
   // The chip's driver began anew in place.
   void chipRestarted(U8 device, bool keepsCounters, unsigned pipes);
   void portCame(const std::string& intf, Place place, double now);
   void portWent(const std::string& intf);
   void portMoved(const std::string& intf, Place place);
   // The agent ended, in good order or not, and another goes on with its tables.
   void agentEnded(bool isOrderly, double now);
   std::string intfAt(Place place) const; // empty: none

   void macAnswered(Place place, double now);
   // Returns false if the poller has not asked.
   bool queuesAnswered(U8 device, U16 pipe, double now);
   void synced(U8 device, U16 pipe);
   void clear(const std::string& intf);
   void happened(double now, const char* kind, const std::string& where) {
      happenings.push_back({now, kind, where});
   }
   void l3Came(const std::string& intf, U16 vlan, double now);
   void l3Went(const std::string& intf);

 private:
   void placed(const std::string& intf, Place place);
   void takeMac(const std::string& intf, Port& port, double now);
   void takeQueues(Port& port, double now);

   const std::array<unsigned, fieldCount> rmonOfField_;
   U32 lives_ = 0;
};

} // namespace Campaign
