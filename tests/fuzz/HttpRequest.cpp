// An HTTP request to the exporter, of an agent that publishes.
#include "apps/zelagent/SwitchAgent.h"
#include "apps/zelexporter/RequestHead.h"
#include "apps/zelexporter/Site.h"
#include "kiln/ActivityLock.h"
#include "kiln/Numbers.h"
#include "tests/fuzz/Fuzz.h"
#include "tests/support/SimulatedTime.h"
#include "tests/support/TemporaryFolder.h"

#include <memory>

using Kiln::String;
using ZelFuzz::must;

namespace {

struct World {
   World() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      agent->traffic().onIs(true);
      ZelTest::SimulatedTime::advance(4.0);
   }
   const ZelTest::SimulatedTime time;
   const ZelTest::TemporaryFolder folder;
   std::unique_ptr<ZelAgent::SwitchAgent> agent = std::make_unique<ZelAgent::SwitchAgent>(
        ZelAgent::SwitchAgentConfig{.chips = 1, .pipes = 1, .ports = 2, .siloFolder = folder.path()});
   ZelExporter::Site site{options()};

 private:
   ZelExporter::Options options() const {
      ZelExporter::Options options;
      options.siloFolder = folder.path();
      return options;
   }
};

World& world() {
   static World one;
   return one;
}

void check(std::string_view head, const ZelExporter::Answer& answer) {
   const std::size_t end = answer.bytes.find("\r\n\r\n");
   must(answer.bytes.starts_with("HTTP/1.1 ") && end != String::npos, "an answer has a head");
   must(!answer.bytes.starts_with("HTTP/1.1 500"), "no request fails by the exporter's fault");
   const std::size_t body = answer.bytes.size() - end - 4;
   if (head.starts_with("HEAD ")) {
      must(body == 0 && !answer.text, "the answer to HEAD has no body");
      return;
   }
   constexpr std::string_view name = "\r\nContent-Length: ";
   const std::size_t at = answer.bytes.find(name);
   must(at < end, "an answer says its length");
   const std::size_t digits = at + name.size();
   const auto length =
        Kiln::parseNumber<U64>(answer.bytes.substr(digits, answer.bytes.find("\r\n", digits) - digits));
   const std::size_t text = !answer.text        ? 0
                            : answer.isUnpacked ? answer.text->unpackedSize
                                                : answer.text->packed.size();
   must(length == body + text, "an answer is as long as it says");
}

} // namespace

int LLVMFuzzerTestOneInput(const U8* data, std::size_t size) {
   const std::string_view text = ZelFuzz::textOf(data, size);
   const std::size_t length = ZelExporter::headLength(text, 0);
   must(length <= std::min(ZelExporter::longestHead, size),
        "a head is no longer than allowed, or than what came");
   const std::string_view head = length == 0 ? text : text.substr(0, length);
   const ZelExporter::Refusal refusal = ZelExporter::refusalOf(head, length != 0);
   if (refusal.status != 0) {
      const auto answer = ZelExporter::refused(head, refusal);
      must(answer.closes, "a refusal ends the connection");
      check(head, answer);
      return 0;
   }
   must(length != 0 && (head.starts_with("GET ") || head.starts_with("HEAD ")),
        "only whole reads are answered");
   const String obeyed = ZelExporter::obeyedHead(head);
   must(ZelExporter::obeyedHead(obeyed) == obeyed, "a head is made obeyable at once");
   check(head, world().site.answer(head, false));
   return 0;
}
