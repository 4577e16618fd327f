// A device that goes with requests outstanding, and comes back; and what came late.
#include "Kit.h"

namespace SdkCheck {

namespace {

void checkGoing(Kit& kit, const std::string& how) {
   constexpr unsigned outstanding = 8;
   std::vector<Request*> requests;
   for (unsigned i = 0; i < outstanding; ++i) {
      requests.push_back(&kit.readPort(kit.target.device, kit.target.port));
   }
   kit.hooks.deviceGoes();
   kit.await(requests);
   kit.report.check(Kit::isGood(requests), "requests of a device that goes" + how, "one completion each",
                    kit.outcome(requests));

   Request& gone = kit.readPort(kit.target.device, kit.target.port);
   kit.await({&gone});
   kit.report.check(gone.status != 0 && gone.completions == 0, "read of a device that is gone" + how,
                    "an error and no completion", kit.outcome({&gone}));

   kit.hooks.deviceComes();
   Request& back = kit.readPort(kit.target.device, kit.target.port);
   kit.await({&back});
   kit.report.check(Kit::isGood({&back}), "read of a device that came back" + how, "one completion",
                    kit.outcome({&back}));
}

} // namespace

void checkDevice(Kit& kit) {
   if (!kit.hooks.deviceGoes || !kit.hooks.deviceComes) {
      kit.report.notTried("a device that goes", "no hooks 'deviceGoes' and 'deviceComes'");
   } else if (!kit.hooks.completingIs) {
      checkGoing(kit, "");
   } else {
      for (const Completing how : {Completing::deferred, Completing::thread}) {
         if (kit.hooks.completingIs(how)) {
            checkGoing(kit, ", " + text(how));
         }
      }
   }
}

// Over all requests of the run, also those whose check had ended.
void checkCompletions(Kit& kit) {
   kit.await({});
   kit.report.check(kit.doubled() == 0, "completions of all requests", "none twice",
                    std::to_string(kit.doubled()) + " twice");
   kit.report.check(kit.strays() == 0, "cookies of all completions", "only those of requests",
                    std::to_string(kit.strays()) + " others");
}

} // namespace SdkCheck
