// The platform's ids and their ranges, and the system status with the two directions of its port map.
#include "zel/SystemStatus.h"
#include "zel/VlanId.h"

#include <gmock/gmock.h>
#include <stdexcept>

namespace {

using Pelt::IntfId;
using testing::ElementsAre;
using testing::ThrowsMessage;
using ZelId::PortIndex;
using ZelSystem::PortRecord;

TEST(ZelId, ValuesOutOfRangeAreRefusedBeforeTheyAreNarrowed) {
   EXPECT_EQ(PortIndex(456), PortIndex());
   for (const U16 value : {U16{457}, U16{65535}}) {
      EXPECT_THAT([&] { static_cast<void>(PortIndex(value)); },
                  ThrowsMessage<std::range_error>(
                       "PortIndex::value < PortIndex::min or > PortIndex::invalid not allowed"));
   }
   EXPECT_EQ(Bridging::VlanId(4094).value(), 4094);
   for (const U32 value : {0U, 4095U, 65537U}) {
      EXPECT_THAT([&] { static_cast<void>(Bridging::VlanId(value)); },
                  ThrowsMessage<std::range_error>("VlanId::value < 1 or > 4094 not allowed"));
   }
}

TEST(IntfId, InternalInterfacesAreTheWordAndANumber) {
   for (const char* name : {"Internal1", "Internal007"}) {
      EXPECT_TRUE(Pelt::InternalIntfId::isInternalIntfId(IntfId(name))) << name;
   }
   for (const char* name :
        {"", "Internal", "internal1", "Internal1.2", "InternalX", "xInternal1", "Ethernet1"}) {
      EXPECT_FALSE(Pelt::InternalIntfId::isInternalIntfId(IntfId(name))) << name;
   }
}

struct SystemStatus : testing::Test {
   struct Watcher : ZelSystem::SystemStatus::Notifiee {
      void onPortInfo(const IntfId& intf) override { told.push_back(intf.text()); }
      std::vector<Kiln::String> told;
   };
   SystemStatus() {
      status->hasNotificationActiveIs(true);
      watcher.notifierIs(status);
   }
   Kiln::String at(ZelId::ZelDevId devId, U16 port) const {
      return status->portToIntfId(devId, PortIndex(port)).text();
   }
   Kiln::Ptr<ZelSystem::SystemStatus> status = Kiln::allocate<ZelSystem::SystemStatus>();
   Watcher watcher;
   const IntfId one{"Ethernet1"};
   const IntfId two{"Ethernet2"};
};

TEST_F(SystemStatus, EachDeviceHasItsOwnPortsAndAMovedPortLeavesItsOldPlace) {
   status->portInfoIs(one, {0, 5});
   status->portInfoIs(two, {1, 5});
   EXPECT_EQ(at(0, 5), "Ethernet1");
   EXPECT_EQ(at(1, 5), "Ethernet2");
   status->portInfoIs(one, {1, 133});
   EXPECT_EQ(at(0, 5), "");
   EXPECT_EQ(at(1, 133), "Ethernet1");
   EXPECT_EQ(status->portInfo(one).pipe(), 1);
   EXPECT_EQ(status->portInfo(one).pipePort(), 5);
   status->portInfoIs(one, {1, 133}); // the same again notifies nobody
   status->portInfoDel(status->portInfo().begin()->first);
   status->portInfoDel(one);
   EXPECT_EQ(at(1, 133), "");
   EXPECT_EQ(status->portInfo(one), PortRecord());
   EXPECT_THAT(watcher.told, ElementsAre("Ethernet1", "Ethernet2", "Ethernet1", "Ethernet1"));
   EXPECT_EQ(at(ZelId::noDevice, 5), "");
}

TEST_F(SystemStatus, ARefusedRecordChangesNothing) {
   status->portInfoIs(one, {0, 5});
   EXPECT_THROW(status->portInfoIs(two, {0, 5}), std::invalid_argument);
   EXPECT_THROW(status->portInfoIs(one, {8, 5}), std::range_error);
   EXPECT_THROW(status->portInfoIs(one, {0, 456}), std::range_error);
   EXPECT_THROW(status->portInfoIs(IntfId(), {0, 6}), std::range_error);
   EXPECT_EQ(at(0, 5), "Ethernet1");
   EXPECT_EQ(status->portInfo().size(), 1U);
   EXPECT_EQ(watcher.told.size(), 1U);
}

} // namespace
