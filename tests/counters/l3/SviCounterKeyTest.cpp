// The text form of a VLAN's counter key.
#include "counters/l3/SviCounterKey.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

using ZelCounter::SviCounterKey;

const std::string opening = "Value('ZelCounter::SviCounterKey', ** {";

TEST(SviCounterKey, ReadsBackWhatItPrints) {
   EXPECT_EQ(SviCounterKey(1, true).text(), opening + "'decapType': 1, 'snat': True})");
   for (const SviCounterKey key : {SviCounterKey(0, false), SviCounterKey(255, true)}) {
      EXPECT_EQ(SviCounterKey(key.text()), key);
   }
   EXPECT_EQ(SviCounterKey(opening + "'snat': True, 'decapType': 7})"), SviCounterKey(7, true));
}

TEST(SviCounterKey, RefusesAnyOtherText) {
   for (const std::string& text :
        {std::string(), std::string("Value('ZelCounter::Other', ** {'decapType': 1, 'snat': True})"),
         opening + "'decapType': 256, 'snat': True})", opening + "'decapType': -1, 'snat': True})",
         opening + "'decapType': 1, 'snat': true})", opening + "'decapType': 1, 'snat': 1})",
         opening + "'decapType': 1})", opening + "'decapType': 1, 'decapType': 1})",
         opening + "'decapType': 1, 'snat': True}) ", opening + "'decapType': 1, 'snat': Truely})"}) {
      EXPECT_THROW(SviCounterKey{text}, std::invalid_argument) << text;
   }
}

} // namespace
