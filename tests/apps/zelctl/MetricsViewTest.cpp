// The words of `zelctl metrics`.
#include "apps/zelctl/views/MetricsView.h"

#include "silo/Store.h"
#include "tests/support/ErrorText.h"

#include <gmock/gmock.h>
#include <sstream>

namespace {

using Kiln::String;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class MetricsView : public testing::Test {
 protected:
   static std::vector<String> wordsOf(const String& line) {
      std::istringstream words(line);
      return {std::istream_iterator<String>(words), {}};
   }
   String view(const String& line) { return ZelCtl::viewMetrics(wordsOf("metrics " + line), store_); }

   const Silo::Store store_ = Silo::Store::temporary();
};

TEST_F(MetricsView, ChoosesFormatAndCollectorsInAnyOrder) {
   EXPECT_THAT(view(""), AllOf(HasSubstr("\nzel_agent_up 0\n"), HasSubstr("collector=\"health\""),
                               Not(HasSubstr("# EOF"))));
   for (const char* const line :
        {"openm coll nat,drops no-coll drops", "no-collect drops collect nat,drops openmetrics"}) {
      EXPECT_THAT(view(line), AllOf(HasSubstr("errors{collector=\"nat\"} 1\n"), Not(HasSubstr("drops")),
                                    HasSubstr("# EOF\n")));
   }
}

TEST_F(MetricsView, RefusesOtherWordsAndOffersThoseThatMayFollow) {
   for (const auto& [line, error] :
        {std::pair{"drops", "unknown word 'drops': expected openmetrics, collect or no-collect"},
         std::pair{"collect nat collect drops", "'collect' twice: once is enough"},
         std::pair{"collect", "unknown collector '': expected some of interfaces, queues,"},
         std::pair{"no-collect nat,nat", "collector 'nat' twice: expected some of"}}) {
      EXPECT_THAT(ZelTest::errorOf([&, words = line] { view(words); }), testing::StartsWith(error));
   }
   using testing::ElementsAre;
   EXPECT_THAT(ZelCtl::metricsCandidates({"metrics", "openmetrics"}, ""),
               ElementsAre("collect", "no-collect"));
   const auto next = ZelCtl::metricsCandidates({"metrics", "collect"}, "drops,q");
   EXPECT_THAT(next, AllOf(testing::Contains("drops,queues"), Not(testing::Contains("drops,drops"))));
}

} // namespace
