// Checks an SDK for what the counters library relies on, a line a check.
#include "Kit.h"
#include "kiln/Ptr.h"

#include <charconv>
#include <cstring>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace SdkCheck {

namespace {

constexpr const char* help =
     "Usage: sdk-check [OPTION]...\n\n"
     "Asks a device what the counters library asks, and prints a line a check: what was expected, and what "
     "came.\n"
     "The port should carry no other traffic, and nothing else may drive the device. Counter tables are "
     "written to,\n"
     "and the VLAN tables are filled and emptied.\n\n"
     "   --device N    the device, 0 upward (0)\n"
     "   --pipes N     how many logical pipes it has, 1 to 4 (1)\n"
     "   --port N      a port of it, pipe x 128 + slot, that exists (0)\n"
     "   --timeout S   seconds after which a completion is lost (5)\n"
     "   --settle S    seconds in which a second completion of a request is looked for (0.1)\n"
     "   --help        this text\n\n"
     "Status 0: no check failed; 1: some did; 2: wrong options, or the SDK did not start.\n";

template <class Number>
std::string shown(Number number) {
   std::ostringstream out;
   out << number;
   return out.str();
}

template <class Number>
Number parse(const char* option, const char* text, Number low, Number high) {
   Number number{};
   const char* const end = text + std::strlen(text);
   const auto [stop, error] = std::from_chars(text, end, number);
   if (error != std::errc() || stop != end || !(number >= low) || !(number <= high)) {
      throw std::invalid_argument(std::string(option) + " " + text + ": expected " + shown(low) + " to " +
                                  shown(high));
   }
   return number;
}

Options parseOptions(int argc, char** argv) {
   Options options;
   for (int i = 1; i < argc; ++i) {
      const std::string option = argv[i];
      if (option == "--help") {
         options.help = true;
         return options;
      }
      const bool isKnown = option == "--device" || option == "--pipes" || option == "--port" ||
                           option == "--timeout" || option == "--settle";
      if (!isKnown) {
         throw std::invalid_argument("unknown option '" + option +
                                     "': expected --device, --pipes, --port, --timeout, --settle or --help");
      }
      if (++i == argc) {
         throw std::invalid_argument(option + " needs a number");
      }
      if (option == "--device") {
         options.target.device = parse(argv[i - 1], argv[i], 0, 7);
      } else if (option == "--pipes") {
         options.target.pipes = parse(argv[i - 1], argv[i], 1U, 4U);
      } else if (option == "--port") {
         options.target.port = parse(argv[i - 1], argv[i], 0, 455);
      } else {
         (option == "--timeout" ? options.timeout : options.settle) =
              parse(argv[i - 1], argv[i], 0.001, 3600.0);
      }
   }
   const Target& target = options.target;
   constexpr int slotsWithPorts = 68;
   if (target.port % 128 >= slotsWithPorts || target.port / 128 >= static_cast<int>(target.pipes)) {
      throw std::invalid_argument("--port " + std::to_string(target.port) +
                                  ": expected pipe x 128 + slot, a pipe below --pipes and a slot below 68");
   }
   return options;
}

int run(const Options& options) {
   Kiln::threadSafePtrModeIs(true); // completions may come on other threads
   Hooks hooks = makeHooks(options.target);
   Kit kit(options, hooks);
   checkSession(kit);
   checkPorts(kit);
   checkPipes(kit);
   checkTables(kit);
   checkEntries(kit);
   checkDevice(kit);
   checkCompletions(kit);
   return kit.report.finish();
}

} // namespace

} // namespace SdkCheck

int main(int argc, char** argv) {
   try {
      const SdkCheck::Options options = SdkCheck::parseOptions(argc, argv);
      if (options.help) {
         std::cout << SdkCheck::help;
         return 0;
      }
      return SdkCheck::run(options);
   } catch (const std::exception& error) {
      std::cerr << "sdk-check: " << error.what() << '\n';
      return 2;
   }
}
