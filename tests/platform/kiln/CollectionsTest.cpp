// The framework's maps, as passes go through them.
#include "kiln/Collections.h"

#include "tests/support/Random.h"

#include <gtest/gtest.h>

namespace {

TEST(HashMap, FindsInAPassWhatItFindsOtherwise) {
   ZelTest::Random random;
   Kiln::HashMap<U64, U64> map;
   constexpr U64 keys = 20;
   for (int round = 0; round < 20'000; ++round) {
      const U64 key = random.oneIn(4) ? random.below(keys) : static_cast<U64>(round) % keys;
      if (random.oneIn(10)) {
         map.set(key, random.next());
      } else if (random.oneIn(10)) {
         map.erase(key);
      }
      ASSERT_EQ(map.findInPass(key), std::as_const(map).find(key)) << "round " << round;
   }
}

TEST(HashMap, SaysWhatAPassComesToNext) {
   Kiln::HashMap<int, int> map;
   EXPECT_EQ(map.nextInPass(), nullptr);
   for (const int key : {1, 2, 3}) {
      map.set(key, 10 * key);
   }
   map.findInPass(2);
   EXPECT_EQ(*map.nextInPass(), 30);
   EXPECT_EQ(*map.secondNextInPass(), 10);
   map.erase(3);
   EXPECT_EQ(*map.nextInPass(), 10);
   map.erase(2);
   EXPECT_EQ(map.nextInPass(), nullptr);
}

} // namespace
