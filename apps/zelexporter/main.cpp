// zelexporter: gives a collector what the agent publishes, over HTTP, and an operator a page to look at.
#include "apps/zelexporter/Server.h"
#include "kiln/LogOutput.h"
#include "kiln/MappedFault.h"
#include "kiln/StandardStreams.h"
#include "kiln/Utf8.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <new>
#include <stdexcept>
#include <sys/signalfd.h>

namespace {

using ZelExporter::Options;

// Readable once the program shall end.
Kiln::OwnedFd endSignals() {
   sigset_t signals;
   sigemptyset(&signals);
   sigaddset(&signals, SIGTERM);
   sigaddset(&signals, SIGINT);
   sigprocmask(SIG_BLOCK, &signals, nullptr);
   Kiln::OwnedFd made(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
   if (!made.isOpen()) {
      throw std::runtime_error(Kiln::String("cannot wait for signals: ") + std::strerror(errno));
   }
   return made;
}

void printHelp() {
   std::cout
        << "Usage: zelexporter [OPTION]...\n\n"
           "Gives collectors what the agent publishes, over HTTP: metrics on /metrics, whether the agent "
           "lives on\n/healthz, and a page for operators on /. It only reads the shared tables, and asks no "
           "agent.\n\n"
        << ZelExporter::optionsHelp()
        << "\nWithout options, only this machine can reach it. For a collector elsewhere, without queues:\n\n"
           "   zelexporter --listen 0.0.0.0:9469 --no-collect queues\n";
}

int run(const Options& options) {
   const Kiln::OwnedFd ends = endSignals();
   Kiln::OwnedFd listener = options.listen.listen();
   Kiln::LogOutput::standardOutput().write("zelexporter: listens on http://" +
                                           ZelExporter::placeOf(listener) + "/\n");
   ZelExporter::Site site(options);
   ZelExporter::Server(std::move(listener), site).runUntil(ends.fd());
   return 0;
}

int cannotRunBecause(const char* reason) {
   Kiln::LogOutput::standardError().write("% " + Kiln::printable(reason) + "\n");
   return 1;
}

} // namespace

int main(int argc, char** argv) {
   std::signal(SIGPIPE, SIG_IGN);
   Kiln::surviveMappedFaults();
   Kiln::openStandardStreams();
   try {
      const Options options = ZelExporter::parseOptions({argv + 1, static_cast<std::size_t>(argc - 1)});
      if (options.help) {
         printHelp();
         return 0;
      }
      if (options.version) {
         std::cout << "zelexporter " ZEL_VERSION "\n";
         return 0;
      }
      return run(options);
   } catch (const std::bad_alloc&) {
      return cannotRunBecause("not enough memory");
   } catch (const std::exception& error) {
      return cannotRunBecause(error.what());
   }
}
