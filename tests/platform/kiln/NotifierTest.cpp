// Entities and their watchers: who is told, and what a watcher may do meanwhile. Also the attributes that the accessor
// macros declare.
#include "kiln/Accessors.h"
#include "kiln/Entity.h"

#include <functional>
#include <gmock/gmock.h>
#include <optional>

namespace {

using Kiln::Ptr;
using Kiln::String;
using testing::ElementsAre;
using testing::ThrowsMessage;

class Lane : public Kiln::PtrInterface {
 public:
   explicit Lane(String laneId) : laneId_(std::move(laneId)) {}
   ~Lane() override {
      if (onEnd) {
         onEnd();
      }
   }
   const String& laneId() const { return laneId_; }
   std::function<void()> onEnd;

 private:
   String laneId_;
};

class Port : public Kiln::Entity {
 public:
   class Notifiee : public Kiln::NotifieeOf<Port> {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onSpeed() {}
      virtual void onVlan(const String&) {}
   };
   KILN_NOTIFIER

   KILN_ATTRIBUTE_NOTIFY(U64, speed, onSpeed)
   KILN_HASH_MAP_NOTIFY(String, U32, vlan, onVlan)
   KILN_ORDERED_MAP_NOTIFY(String, U32, sortedVlan, onVlan)
   KILN_ORDERED_MAP(U32, Ptr<Lane>, spareLane)
   KILN_COLLECTION(Net::Port, String, Lane, laneId, lane)
};

// Long enough to live on the heap, so that AddressSanitizer sees a stale reference to it.
String longKey(const char* tail) {
   return String("a key that is too long for the string itself: ") + tail;
}

struct Watcher : Port::Notifiee {
   explicit Watcher(Ptr<const Port> port, const Kiln::Entity* reactor = nullptr) : Notifiee(reactor) {
      notifierIs(std::move(port));
   }
   void onSpeed() override {
      ++told;
      if (then) {
         then();
      }
   }
   void onVlan(const String& key) override {
      keys.push_back(key);
      if (then) {
         then();
      }
   }
   int told = 0;
   std::vector<String> keys;
   std::function<void()> then;
};

struct Notifier : testing::Test {
   Notifier() { port->hasNotificationActiveIs(true); }
   Ptr<Port> port = Kiln::allocate<Port>();
};

TEST_F(Notifier, TellsOnlyOfChangesAndOnlyWhenEntityAndReactorAreActive) {
   const auto reactor = Kiln::allocate<Port>();
   const Watcher gated(port, reactor.ptr());
   const Watcher open(port);
   port->speedIs(1);
   EXPECT_EQ(open.told, 1);
   EXPECT_EQ(gated.told, 0);
   port->speedIs(1);
   EXPECT_EQ(open.told, 1);
   reactor->hasNotificationActiveIs(true);
   port->speedIs(2);
   EXPECT_EQ(gated.told, 1);
   port->hasNotificationActiveIs(false);
   port->speedIs(3);
   EXPECT_EQ(open.told, 2);
   EXPECT_EQ(port->speed(), 3U);
}

TEST_F(Notifier, AWatcherMayGoOrComeOrSendAnotherAwayWhileTold) {
   Watcher first(port);
   std::optional<Watcher> second(std::in_place, port);
   std::optional<Watcher> third(std::in_place, port);
   std::optional<Watcher> late;
   first.then = [&] { first.notifierIs(nullptr); };
   second->then = [&] {
      late.emplace(port);
      third.reset();
      second.reset();
   };
   Watcher last(port);
   port->speedIs(1);
   EXPECT_EQ(first.told, 1);
   EXPECT_EQ(last.told, 1);
   ASSERT_TRUE(late.has_value());
   EXPECT_EQ(late->told, 0);
   port->speedIs(2);
   EXPECT_EQ(first.told, 1);
   EXPECT_EQ(last.told, 2);
   EXPECT_EQ(late->told, 1);
}

TEST_F(Notifier, AThrowingWatcherKeepsNobodyElseFromBeingToldAndTheFirstExceptionGoesOn) {
   Watcher first(port);
   Watcher second(port);
   const Watcher third(port);
   first.then = [] { throw std::runtime_error("first"); };
   second.then = [] { throw std::runtime_error("second"); };
   EXPECT_THAT([&] { port->speedIs(1); }, ThrowsMessage<std::runtime_error>("first"));
   EXPECT_EQ(third.told, 1);
   EXPECT_EQ(port->speed(), 1U);
}

TEST_F(Notifier, TheEntityMayDieWhileItNotifiesEvenInsideDelAll) {
   Watcher only(port);
   for (const char* key : {"1", "2", "3"}) {
      port->vlanIs(key, 1);
   }
   Port* const raw = port.ptr();
   port = nullptr;
   only.keys.clear();
   only.then = [&] { only.notifierIs(nullptr); };
   raw->vlanDelAll();
   EXPECT_THAT(only.keys, ElementsAre("1"));
}

TEST_F(Notifier, AKeyThatLivesInTheMapSurvivesTheDeletionOfItsEntry) {
   port->vlanIs(longKey("1"), 1);
   port->sortedVlanIs(longKey("2"), 1);
   Watcher deleter(port);
   Watcher reader(port);
   port->vlanDel(port->vlan().begin()->first);
   port->sortedVlanDel(port->sortedVlan().begin()->first);
   EXPECT_THAT(reader.keys, ElementsAre(longKey("1"), longKey("2")));
   EXPECT_TRUE(port->vlan().empty() && port->sortedVlan().empty());

   port->vlanIs(longKey("3"), 1);
   reader.keys.clear();
   deleter.then = [&] {
      deleter.then = nullptr;
      port->vlanDelAll();
   };
   port->vlanIs(port->vlan().begin()->first, 2);
   EXPECT_THAT(reader.keys, ElementsAre(longKey("3"), longKey("3")));
}

TEST_F(Notifier, DelAllDeletesEachKeyOnceThoughAWatcherDeletesOthers) {
   for (const char* key : {"c", "a", "b", "d"}) {
      port->vlanIs(key, 1);
   }
   Watcher watcher(port);
   watcher.then = [&] { port->vlanDel("a"); };
   port->vlanDelAll();
   EXPECT_THAT(watcher.keys, ElementsAre("c", "a", "b", "d"));
   EXPECT_TRUE(port->vlan().empty());
   port->vlanDel("c");
   EXPECT_EQ(watcher.keys.size(), 4U);
}

TEST(Accessors, NeitherALookUpNorARefusedNullElementChangesTheMap) {
   const auto port = Kiln::allocate<Port>();
   EXPECT_EQ(port->vlan("absent"), 0U);
   EXPECT_EQ(port->lane("absent"), nullptr);
   EXPECT_TRUE(port->vlan().empty());
   port->laneIs(Kiln::allocate<Lane>("one"));
   EXPECT_THAT([&] { port->laneIs(nullptr); },
               ThrowsMessage<std::invalid_argument>(
                    "null _lane parameter to mutator for Net::Port::lane not allowed"));
   EXPECT_EQ(port->lane().size(), 1U);
}

// In each kind of map, an element that is being destroyed finds itself already gone.
TEST(Accessors, AnElementMayLookIntoItsMapWhileItEnds) {
   const auto port = Kiln::allocate<Port>();
   std::vector<std::size_t> sizes;
   const auto lane = [&](const char* id, std::function<void()> onEnd) {
      auto made = Kiln::allocate<Lane>(id);
      made->onEnd = std::move(onEnd);
      return made;
   };
   port->laneIs(lane("x", [&] { sizes.push_back(port->lane().contains("x") ? 9 : port->lane().size()); }));
   port->laneDel("x");
   for (const U32 key : {1U, 2U}) {
      port->spareLaneIs(key, lane("y", [&, key] {
                           sizes.push_back(port->spareLane().contains(key) ? 9 : port->spareLane().size());
                        }));
   }
   port->spareLaneDelAll();
   EXPECT_THAT(sizes, ElementsAre(0U, 1U, 0U));
}

TEST(Collections, AHashMapKeepsTheOrderOfInsertionThroughCopyMoveAndOverwrite) {
   Kiln::HashMap<int, String> map;
   for (const int key : {30, 10, 20}) {
      map.set(key, longKey("value"));
   }
   map.set(30, "new");
   Kiln::HashMap<int, String> copy(map);
   map.erase(10);
   map.set(10, "again");
   EXPECT_THAT(copy.keys(), ElementsAre(30, 10, 20));
   EXPECT_THAT(map.keys(), ElementsAre(30, 20, 10));
   const Kiln::HashMap<int, String> moved(std::move(map));
   copy = moved;
   copy.erase(30); // must go through the copy's own index, not the original's
   EXPECT_THAT(moved.keys(), ElementsAre(30, 20, 10));
   EXPECT_THAT(copy.keys(), ElementsAre(20, 10));
   EXPECT_EQ(*moved.find(30), "new");
}

} // namespace
