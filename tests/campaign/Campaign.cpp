// What may happen, and how it is told to the agent and the model.
#include "tests/campaign/Campaign.h"

#include "counters/ZelCounters.h"
#include "counters/queues/PipeIntfQueueCounterSm.h"
#include "counters/tables/HwTableCountersSm.h"
#include "kiln/ActivityLock.h"
#include "tests/campaign/Readers.h"
#include "tests/support/Manual.h"

#include <algorithm>
#include <bit>
#include <cstdio>
#include <filesystem>
#include <thread>

namespace Campaign {

namespace {

using SoftChip::CompletionMode;

U64 runningEvent = 0; // or the last one

constexpr unsigned devices = 3;
constexpr double longestLate = 60; // seconds

// Which RMON counter fills which field, as the documents have it.
std::array<unsigned, fieldCount> rmonOfField() {
   std::map<std::string, unsigned> rmon;
   for (const auto& row : ZelTest::manualRows("rmon-counters.md", "# RMON counters")) {
      rmon[row.at(3)] = static_cast<unsigned>(std::stoul(row.at(0)));
   }
   std::array<unsigned, fieldCount> fields{};
   for (const auto& row : ZelTest::manualRows("published-records.md", "### Fields of a port")) {
      std::string name = row.at(1);
      std::erase(name, '`');
      fields.at(std::stoul(row.at(0))) = rmon.at(name);
   }
   return fields;
}

// Entry points that may be refused without an assertion.
constexpr std::array refusable = {
     "bf_port_mac_stats_hw_async_get",
     "bf_tm_pipe_counter_get",
     "bf_pipe_path_counter_get",
     "bf_pipe_mau_drop_get",
     "bf_pipe_deparser_drop_get",
     "pipe_mgr_stat_tbl_symmetric_mode_initialized",
     "pipe_mgr_get_first_entry_handle",
     "pipe_mgr_get_next_entry_handles",
     "counterHwSyncDirect",
     "counterHwSyncIndirect",
     "counterReadDirectStart",
     "counterReadDirectMain",
     "counterReadDirectEnd",
     "counterReadIndirectStart",
     "counterReadIndirectMain",
     "counterReadIndirectEnd",
};
constexpr std::array statuses = {1, 5, 10, 17, 22, -1, 26};

} // namespace

struct Run::Kind {
   const char* name;
   unsigned weight;
   void (Run::*happen)(Draws& draws);
};

const Run::Kind Run::kinds[] = {
     {"traffic", 30, &Run::traffic},
     {"jump", 3, &Run::jump},
     {"flip", 3, &Run::flip},
     {"reset of a block", 2, &Run::resetBlock},
     {"queue traffic", 12, &Run::queueTraffic},
     {"packets", 12, &Run::packets},
     {"queue trouble", 2, &Run::queueTrouble},
     {"completions", 3, &Run::completions},
     {"some completions", 3, &Run::someCompletions},
     {"held", 6, &Run::deliverHeld},
     {"refusal", 5, &Run::refuse},
     {"chip", 2, &Run::chip},
     {"restart of a chip", 2, &Run::restartChip},
     {"port", 4, &Run::port},
     {"intervals", 1, &Run::intervals},
     {"clear", 2, &Run::clear},
     {"L3 interface", 5, &Run::l3Intf},
     {"L3 traffic", 8, &Run::l3Traffic},
     {"L3 trouble", 2, &Run::l3Trouble},
     {"restart", 1, &Run::restart},
     {"damage", 1, &Run::damage},
     {"assertion", 1, &Run::assertion},
     {"fake counter", 1, &Run::fake},
     {"command", 3, &Run::command},
     {"quiet", 1, &Run::quiet},
     {"wait", 19, &Run::wait},
};

Run::Run(const Settings& settings) : settings_(settings), model_(rmonOfField()) {
   // With every fourth seed the agent gives way wherever it may, which takes longer.
   Kiln::ActivityLockAnchor::sliceIs(settings_.seed % 4 == 0 ? 0 : Kiln::ActivityLockAnchor::defaultSlice);
   Draws draws(settings_.seed, 0);
   config_.chips = 1 + static_cast<unsigned>(draws.below(2));
   config_.pipes = 1 + static_cast<unsigned>(draws.below(2));
   config_.ports = 2 + static_cast<unsigned>(draws.below(4));
   config_.capabilities.vlanCounters = !draws.oneIn(8);
   config_.capabilities.vxlan = !draws.oneIn(3);
   config_.capabilities.vrfNat = !draws.oneIn(3);
   config_.capabilities.qosPolicyCounter = draws.oneIn(2);
   config_.historyMinutes = 1;
   config_.siloFolder = folder_.path() + "/tables";
   config_.hardwareFile = folder_.path() + "/hardware";
   if (isSimulation_) {
      setenv("SIMULATION_VMID", "1", 1);
   }
}

U64 Run::lastEvent() {
   return runningEvent;
}

std::size_t Run::deadObjects() {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   return ZelCounter::CookieRegistry<ZelCounter::ZelCounters>::instance().retiredCount() +
          ZelCounter::CookieRegistry<ZelCounter::HwTableCountersSm>::instance().retiredCount();
}

Run::~Run() {
   // After a failure; what is still answered is of no interest.
   model_.chips.clear();
   readers_ = nullptr;
   agent_ = nullptr;
}

Result Run::run() {
   startAgent();
   constexpr double secondsPerHour = 3600;
   if (settings_.only) {
      for (const U64 number : *settings_.only) {
         runEvent(number);
      }
   } else {
      for (U64 number = 1; now() < settings_.hours * secondsPerHour; ++number) {
         runEvent(number);
      }
   }
   calm();
   throwFailure();
   result_.hours = now() / secondsPerHour;
   endAgent(true);
   // What is left is a dead object for each that waits for a lost answer.
   const auto dead = std::ranges::count_if(
        unanswered_, [](const auto& entry) { return entry.first.second != Request::Kind::queueSync; });
   const auto kept = static_cast<S64>(deadObjects() - deadBefore_);
   // Which of the answers at the end of a simulation are still heard, the model does not know.
   expect(kept <= dead && (isSimulation_ || kept >= dead - strays_), kept, " dead objects are kept and not ",
          dead, " less ", strays_, " at most");
   expect(Kiln::activityManagerClock()->armedCount() == 0, "clocks are armed");
   throwFailure();
   return result_;
}

void Run::runEvent(U64 number) {
   Draws draws(settings_.seed, number);
   unsigned all = 0;
   for (const Kind& kind : kinds) {
      all += kind.weight;
   }
   U64 drawn = draws.below(all);
   const Kind* kind = kinds;
   for (; drawn >= kind->weight; ++kind) {
      drawn -= kind->weight;
   }
   if (settings_.isTold) {
      std::printf("%llu at %.6f: %s\n", static_cast<unsigned long long>(number), now(), kind->name);
      std::fflush(stdout);
   }
   ++result_.events;
   runningEvent = number;
   note(static_cast<U64>(kind - kinds));
   {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      (this->*kind->happen)(draws);
   }
   note(now());
   checkSchedulers();
   checkCounts();
   checkL3();
   constexpr U64 eventsBetweenChecks = 1000;
   if (number % eventsBetweenChecks == 0) {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      checkViews();
      checkTables();
      checkCounted(false);
      checkMetrics(false);
      checkHistory(false);
      checkEvents();
   }
   throwFailure();
}

void Run::note(double value) {
   note(std::bit_cast<U64>(value));
}

void Run::fail(const std::string& what) {
   if (failure_.empty()) {
      failure_ = what + ", at " + std::to_string(now());
   }
}

void Run::throwFailure() const {
   if (!failure_.empty()) {
      throw Failure(failure_);
   }
}

// In steps, so that every pass of the manager begins with what was expected of its clock.
void Run::advance(double seconds) {
   ZelTest::SimulatedTime::advance(seconds);
}

void Run::startAgent() {
   for (unsigned device = 0; device < config_.chips; ++device) {
      model_.chipCame(static_cast<U8>(device), config_.pipes);
      model_.happened(now(), "chip-came", chipName(static_cast<U8>(device)));
   }
   agent_ = std::make_unique<ZelAgent::SwitchAgent>(config_);
   agent_->createdIsKept();
   model_.happened(now(), "agent-started", "");
   readers_ = std::make_unique<Readers>(agent_->tableStore());
   const auto lock = Kiln::ActivityLockAnchor::lock();
   for (const auto& [intf, record] : agent_->systemStatus().portInfo()) {
      comesPort(intf.text(), {record.devId, record.devicePort});
   }
   const auto hasPort = [&](const std::string& intf) {
      return agent_->systemStatus().portInfo().contains(Pelt::IntfId(Kiln::Name(intf)));
   };
   std::erase_if(model_.ports, [&](const auto& entry) {
      if (entry.second.isPublished && !hasPort(entry.first)) {
         model_.happened(now(), "port-went", entry.first);
      }
      return !hasPort(entry.first);
   });
   for (const auto& [device, chip] : model_.chips) {
      beginChip(device);
   }
   for (auto& [intf, l3Intf] : model_.l3) {
      l3Intf.createdTime = now();
      agent_->l3Add(Pelt::IntfId(Kiln::Name(intf)), Bridging::VlanId(l3Intf.vlan));
   }
   agent_->countersMgr().forgetAbsentInterfaces();
   agent_->fleet().completions().modeIs({CompletionMode::Kind::deferred, 0.0, 1});
   model_.mayRefuseDeletions = false;
   lost_ = 0;
   pollingInterval_ = 2.0;
   passDue_ = now() + pollingInterval_;
}

void Run::endAgent(bool isOrderly) {
   isCleanedUp_ = isSimulation_ && !model_.chips.empty(); // then nothing is read once more
   model_.agentEnded(isOrderly && !isCleanedUp_, now());
   readers_ = nullptr;
   agent_ = nullptr;
}

void Run::requested(const Request& request) {
   if (request.kind == Request::Kind::mac) {
      passed();
   }
   ++unanswered_[{request.life, request.kind}];
   Chip& chip = model_.chips.at(request.device);
   if (request.kind == Request::Kind::tableSync) {
      ++chip.pending;
   } else if (request.kind == Request::Kind::queueSync) {
      chip.pipes.at(request.place).isOutstanding = true;
   }
}

void Run::refused(const Request& request) {
   ++result_.faults;
   answeredOnce(request);
   Chip& chip = model_.chips.at(request.device);
   if (request.kind == Request::Kind::tableSync) {
      chip.pending -= chip.pending > 0 ? 1 : 0;
   } else if (request.kind == Request::Kind::queueSync) {
      chip.pipes.at(request.place) = {.isOutstanding = false, .isStopped = true};
   }
}

// Twice does not count twice. A second answer that comes after the storage of its object was given up may pass for the
// answer to another's lost request.
void Run::answeredOnce(const Request& request) {
   if (isCleanedUp_ && !agent_) {
      return; // nobody listens any more
   }
   constexpr U32 chipsKept = 64;
   const auto found = unanswered_.find({request.life, request.kind});
   if (found == unanswered_.end()) {
      strays_ += request.life + chipsKept <= model_.lives() ? 1 : 0;
   } else if (--found->second == 0) {
      unanswered_.erase(found);
   }
}

void Run::accepted(const Request& request) {
   const U64 lost = agent_ ? agent_->fleet().completions().lostCount() : lost_;
   if (std::exchange(lost_, lost) == lost) {
      return;
   }
   Chip& chip = model_.chips.at(request.device);
   if (request.kind == Request::Kind::tableSync) {
      chip.hasLost = true;
   } else if (request.kind == Request::Kind::queueSync) {
      chip.pipes.at(request.place).hasLost = true;
   }
}

void Run::answering(const Request& request) {
   if (request.kind == Request::Kind::queueSync && request.life == model_.lifeOf(request.device)) {
      model_.synced(request.device, request.place);
   }
}

void Run::answered(const Request& request, const bf_rmon_counter_array_t* values) {
   answeredOnce(request);
   note(static_cast<U64>(request.kind) << 32 | U64{request.device} << 16 | request.place);
   const bool isAlive = request.life == model_.lifeOf(request.device) && request.life != 0;
   if (request.kind == Request::Kind::queueSync) {
      if (model_.queuesAnswered(request.device, request.place, now())) {
         for (const auto& [intf, port] : model_.ports) {
            if (port.place.device == request.device && port.place.pipe() == request.place) {
               checkQueues(intf);
            }
         }
      }
   } else if (isAlive && request.kind == Request::Kind::tableSync) {
      Chip& chip = model_.chips.at(request.device);
      chip.pending -= chip.pending > 0 ? 1 : 0;
      model_.syncTimes.at(request.device) = now();
   } else if (isAlive) {
      const Place place{request.device, request.place};
      const std::string intf = model_.intfAt(place);
      if (!intf.empty()) {
         expect(std::ranges::equal(*values, model_.hardware[place].mac),
                "the SDK's values of " + intf + " are not the hardware's");
         model_.macAnswered(place, now());
         checkPort(intf);
      }
   }
}

const std::string* Run::drawPort(Draws& draws) const {
   return model_.ports.empty() ? nullptr : &draws.oneOf(model_.ports).first;
}

std::optional<Place> Run::drawFreePlace(Draws& draws) const {
   if (model_.chips.empty()) {
      return std::nullopt;
   }
   Place place{draws.oneOf(model_.chips).first};
   const auto pipe = static_cast<U16>(draws.below(config_.pipes));
   constexpr std::array<U16, 8> slots{0, 1, 2, 5, 63, 65, 66, 67};
   place.port = static_cast<U16>(pipe * 128 + draws.oneOf(slots));
   return model_.intfAt(place).empty() ? std::optional(place) : std::nullopt;
}

void Run::traffic(Draws& draws) {
   const std::string* const intf = drawPort(draws);
   if (intf == nullptr) {
      return;
   }
   const Place place = model_.ports.at(*intf).place;
   SoftChip::Chip& chip = *agent_->fleet().chip(place.device);
   for (U64 left = 1 + draws.below(8); left > 0; --left) {
      const auto index = static_cast<unsigned>(draws.below(rmonCount));
      const U64 bits = draws.below(48);
      const U64 step = draws.next() >> (63 - bits);
      U64& value = model_.hardware[place].mac[index];
      value += step;
      chip.rmonIs(place.port, index, value);
   }
}

// To a bound of the vetting, or near a wrap.
void Run::jump(Draws& draws) {
   const std::string* const intf = drawPort(draws);
   if (intf == nullptr) {
      return;
   }
   const Place place = model_.ports.at(*intf).place;
   // A few, so that they go from one bound to another.
   constexpr std::array<unsigned, 5> indices{
        BF_RMON_OCTETS_RECEIVED_GOOD, BF_RMON_FRAMES_RECEIVED_ALL, BF_RMON_FRAMES_RECEIVED_WITH_ERRORS,
        BF_RMON_PAUSE_FRAMES_RECEIVED, BF_RMON_PFC_FRAMES_TRANSMITTED_PRIORITY_7};
   const unsigned index = draws.oneOf(indices);
   U64& value = model_.hardware[place].mac[index];
   constexpr U64 window = U64{1} << 48;
   constexpr std::array<U64, 12> bounds{0,           1,          window - 2,         window - 1,
                                        window,      window + 1, 0xFFFF000000000000, 0xFFFF000000000001,
                                        ~U64{0} - 1, ~U64{0},    U64{1} << 63,       (U64{1} << 63) - 1};
   const U64 drawn = draws.oneOf(bounds);
   value = draws.oneIn(2) ? drawn : value + drawn;
   agent_->fleet().chip(place.device)->rmonIs(place.port, index, value);
}

void Run::flip(Draws& draws) {
   const std::string* const intf = drawPort(draws);
   if (intf == nullptr) {
      return;
   }
   const Place place = model_.ports.at(*intf).place;
   const auto index = static_cast<unsigned>(draws.below(rmonCount));
   const auto bit = static_cast<unsigned>(draws.below(64));
   model_.hardware[place].mac[index] ^= U64{1} << bit;
   agent_->fleet().chip(place.device)->rmonFlip(place.port, index, bit);
}

void Run::resetBlock(Draws& draws) {
   const std::string* const intf = drawPort(draws);
   if (intf == nullptr) {
      return;
   }
   const Place place = model_.ports.at(*intf).place;
   SoftChip::Chip& chip = *agent_->fleet().chip(place.device);
   Hardware& hardware = model_.hardware[place];
   if (draws.oneIn(2)) {
      hardware.mac = {};
      for (unsigned index = 0; index < rmonCount; ++index) {
         chip.rmonIs(place.port, index, 0);
      }
      return;
   }
   for (unsigned queue = 0; queue < place.queues(); ++queue) {
      hardware.queues[queue] = {0, 0, hardware.queues[queue][2]};
      chip.queueIs(place.port, queue, {}, hardware.queues[queue][2]);
   }
}

void Run::queueTraffic(Draws& draws) {
   const std::string* const intf = drawPort(draws);
   if (intf == nullptr) {
      return;
   }
   const Place place = model_.ports.at(*intf).place;
   const auto queue = static_cast<unsigned>(draws.below(place.queues()));
   QueueCount& count = model_.hardware[place].queues[queue];
   count[0] += draws.below(1000);
   count[1] += draws.below(1000000);
   count[2] += draws.below(100);
   agent_->fleet().chip(place.device)->queueIs(place.port, queue, {count[0], count[1]}, count[2]);
}

void Run::queueTrouble(Draws& draws) {
   const std::string* const intf = drawPort(draws);
   if (intf == nullptr) {
      return;
   }
   const Place place = model_.ports.at(*intf).place;
   const auto queue = static_cast<unsigned>(draws.below(place.queues()));
   QueueCount& count = model_.hardware[place].queues[queue];
   U64& value = count[draws.below(count.size())];
   if (draws.oneIn(3)) {
      value = 0;
   } else {
      value ^= U64{1} << draws.below(64);
   }
   agent_->fleet().chip(place.device)->queueIs(place.port, queue, {count[0], count[1]}, count[2]);
}

namespace {

CompletionMode drawMode(Draws& draws) {
   constexpr std::array kinds{CompletionMode::Kind::inlined, CompletionMode::Kind::deferred,
                              CompletionMode::Kind::late, CompletionMode::Kind::held};
   CompletionMode mode;
   mode.kind = draws.oneOf(kinds);
   const U64 percent = 1 + draws.below(100);
   mode.seconds = longestLate * static_cast<double>(percent * percent) / 1e4;
   return mode;
}

} // namespace

void Run::completions(Draws& draws) {
   agent_->fleet().completions().modeIs(drawMode(draws));
}

// The next few come otherwise: twice, or never.
void Run::someCompletions(Draws& draws) {
   CompletionMode mode = drawMode(draws);
   ++result_.faults;
   if (draws.oneIn(4)) {
      mode.kind = CompletionMode::Kind::lost;
   } else if (draws.oneIn(2)) {
      mode.copies = 2;
   }
   agent_->fleet().completions().nextModeIs(mode, static_cast<U32>(1 + draws.below(4)));
}

void Run::deliverHeld(Draws& draws) {
   SoftChip::Completions& completions = agent_->fleet().completions();
   const auto deliver = [&](U64 most) {
      for (U64 left = std::min<U64>(completions.held().size(), most); left > 0; --left) {
         completions.deliverHeld(draws.below(completions.held().size()));
      }
   };
   const U64 most = 1 + draws.below(6);
   if (draws.oneIn(3)) { // on another thread, which the SDK may have
      Kiln::ActivityLockAnchor::yieldWhile([&] { std::thread([&] { deliver(most); }).join(); });
   } else {
      deliver(most);
   }
}

// In a simulation all ports may pretend to have the same single counter.
void Run::fake(Draws& draws) {
   const U64 id = draws.below(rmonCount);
   const U64 bits = draws.below(64);
   const U64 value = draws.next() >> bits;
   if (!isSimulation_) {
      return;
   }
   setenv("ZEL_COUNTER_ID", std::to_string(id).c_str(), 1);
   setenv("ZEL_COUNTER_VALUE", std::to_string(value).c_str(), 1);
   agent_->countersMgr().requestHwCountersPolling();
   unsetenv("ZEL_COUNTER_ID");
   for (const auto& [intf, port] : model_.ports) {
      if (isPolled(intf, port)) {
         std::array<U64, rmonCount>& mac = model_.hardware[port.place].mac;
         const auto before = std::exchange(mac, {});
         mac[id] = value;
         model_.macAnswered(port.place, now());
         mac = before;
         checkPort(intf);
      }
   }
}

void Run::refuse(Draws& draws) {
   ++result_.faults;
   const bool isQueueSync = draws.oneIn(20); // these end a pipe's polling
   const char* const entryPoint = isQueueSync ? "pipe_mgr_stat_database_sync" : draws.oneOf(refusable);
   const int status = draws.oneOf(statuses);
   agent_->fleet().faults().failNext(entryPoint, status, static_cast<U32>(1 + draws.below(3)));
}

void Run::addChip(U8 device) {
   model_.chipCame(device, config_.pipes);
   model_.happened(now(), "chip-came", chipName(device));
   agent_->chipAdd(chipName(device));
   beginChip(device);
   for (const auto& [intf, record] : agent_->systemStatus().portInfo()) {
      if (record.devId == device) {
         comesPort(intf.text(), {record.devId, record.devicePort});
      }
   }
}

void Run::deleteChip(U8 device) {
   agent_->chipDel(chipName(device));
   for (const auto& [intf, port] : model_.ports) {
      if (port.place.device == device) {
         model_.happened(now(), "port-went", intf);
      }
   }
   model_.happened(now(), "chip-went", chipName(device));
   model_.chipWent(device);
}

void Run::chip(Draws& draws) {
   const auto device = static_cast<U8>(draws.below(devices));
   if (model_.chips.contains(device)) {
      deleteChip(device);
      return;
   }
   // Its interfaces may have moved to other chips meanwhile.
   for (unsigned number = device * config_.ports + 1; number <= (device + 1) * config_.ports; ++number) {
      const std::string intf = "Ethernet" + std::to_string(number);
      if (model_.ports.contains(intf)) {
         agent_->portDel(Pelt::IntfId(Kiln::Name(intf)));
         goesPort(intf);
      }
   }
   addChip(device);
}

void Run::restartChip(Draws& draws) {
   if (model_.chips.empty()) {
      return;
   }
   const U8 device = draws.oneOf(model_.chips).first;
   const bool keepsCounters = draws.oneIn(2);
   model_.chipRestarted(device, keepsCounters, config_.pipes);
   agent_->chipRestart(chipName(device), keepsCounters);
   beginChip(device);
   model_.happened(now(), "chip-went", chipName(device));
   model_.happened(now(), "chip-came", chipName(device));
}

void Run::addPort(const std::string& intf, Place place) {
   agent_->portAdd(Pelt::IntfId(Kiln::Name(intf)), chipName(place.device), place.port);
   comesPort(intf, place);
}

void Run::comesPort(const std::string& intf, Place place) {
   const auto port = model_.ports.find(intf);
   if (port == model_.ports.end() || !port->second.isPublished) { // else an earlier agent told of it
      model_.happened(now(), "port-came", intf);
   }
   model_.portCame(intf, place, now());
   beginPort(intf, place, false);
}

void Run::goesPort(const std::string& intf) {
   model_.happened(now(), "port-went", intf);
   model_.portWent(intf);
}

void Run::port(Draws& draws) {
   const std::string* const present = drawPort(draws);
   const std::optional<Place> free = drawFreePlace(draws);
   const U64 what = draws.below(3);
   if (what == 0 && free) {
      const bool isInternal = draws.oneIn(4);
      const U64 number = draws.below(6);
      const std::string intf = isInternal ? "Internal" + std::to_string(1 + number % devices)
                                          : "Ethernet" + std::to_string(100 + number);
      if (!model_.ports.contains(intf)) {
         addPort(intf, *free);
      }
   } else if (what == 1 && present != nullptr) {
      const std::string intf = *present;
      agent_->portDel(Pelt::IntfId(Kiln::Name(intf)));
      goesPort(intf);
   } else if (what == 2 && present != nullptr && free) {
      agent_->portMove(Pelt::IntfId(Kiln::Name(*present)), chipName(free->device), free->port);
      model_.portMoved(*present, *free);
      beginPort(*present, *free, true);
   }
}

void Run::intervals(Draws& draws) {
   constexpr std::array<double, 6> choices{0.5, 1, 2, 5, 30, 60};
   pollingInterval_ = draws.oneOf(choices);
   agent_->countersMgr().sdkPollingIntervalIs(pollingInterval_);
   for (const auto& [device, chip] : model_.chips) {
      const auto& counters = agent_->countersMgr().zelCounters(device);
      counters->hwTableCountersSm()->hwTableCountersPollingIntervalIs(draws.oneOf(choices));
      counters->intfQueueCountersSdkPollingIntervalIs(draws.oneOf(choices));
   }
}

void Run::clear(Draws& draws) {
   const std::string* const one = drawPort(draws);
   const bool isAll = one == nullptr || draws.oneIn(3);
   agent_->countersMgr().vexCountersSm()->clear(isAll ? "all" : *one);
   model_.happened(now(), "clear", isAll ? "" : *one);
   for (const auto& [intf, port] : model_.ports) {
      if (isAll || intf == *one) {
         model_.clear(intf);
      }
   }
}

void Run::wait(Draws& draws) {
   constexpr U64 longWait = 600000; // milliseconds
   const U64 longest = draws.oneIn(60) ? longWait : draws.oneIn(6) ? 20000 : 3000;
   // Not a whole number, so that things seldom fall due at the same moment.
   advance(static_cast<double>(draws.below(longest)) / 1000 + 0.0001);
}

void Run::quiet(Draws& draws) {
   if (draws.oneIn(4)) {
      calm();
   }
}

// Faults stop, and what was late comes. Then all must be fresh within ten seconds but what a lost answer, or a refused
// sync of queues, has stopped for good.
void Run::calm() {
   const auto lock = Kiln::ActivityLockAnchor::lock();
   SoftChip::Fleet& fleet = agent_->fleet();
   fleet.faults().clear();
   model_.mayRefuseDeletions = false;
   fleet.completions().modeIs({CompletionMode::Kind::deferred, 0.0, 1});
   agent_->countersMgr().sdkPollingIntervalIs(2.0);
   pollingInterval_ = 2.0;
   for (auto& [device, chip] : model_.chips) {
      const auto& counters = agent_->countersMgr().zelCounters(device);
      counters->hwTableCountersSm()->hwTableCountersPollingIntervalIs(2.0);
      counters->intfQueueCountersSdkPollingIntervalIs(2.0);
      for (const char* const table : {"ingL2DomainCount", "egrL2DomainCount"}) {
         constexpr U32 enough = 8000;
         fleet.chip(device)->capacityIs(table, enough);
      }
      // Which VLANs that wait for room take for an occasion.
      agent_->chipStateIs(chipName(device), 5);
      agent_->chipStateIs(chipName(device), chip.state = 8);
   }
   constexpr double longestInterval = 60;
   // What is planned for the next requests may hold answers once more, when a chip gets to making them.
   for (unsigned rounds = 2; rounds > 0; --rounds) {
      advance(longestLate);
      rounds = fleet.completions().deliverAllHeld() != 0 ? 3 : rounds;
   }
   advance(longestInterval + 2);
   const double since = now();
   constexpr double patience = 10;
   advance(patience);
   checkFresh(since);
   for (auto& [device, chip] : model_.chips) {
      chip.hasLeftovers = false; // no entry without an owner, once the chip answers
   }
   checkL3();
   for (const auto& [vlan, count] : shortages_) {
      expect(count == 0, "VLAN " + std::to_string(vlan) + " still waits for room");
   }
   checkTables();
   checkCalmCounted();
   checkMetrics(true);
   checkViews();
   checkL3Records(true);
   checkHistory(true);
   checkEvents();
}

} // namespace Campaign
