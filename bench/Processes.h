// Other processes that a benchmark starts, and the folder that it has in common with them.
#pragma once

#include <csignal>
#include <filesystem>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Bench {

// In shared memory.
struct SharedFolder {
   explicit SharedFolder(const std::string& benchmark)
        : path("/dev/shm/" + benchmark + "." + std::to_string(getpid())) {
      std::filesystem::create_directories(path);
   }
   SharedFolder(const SharedFolder&) = delete;
   SharedFolder& operator=(const SharedFolder&) = delete;
   ~SharedFolder() { std::filesystem::remove_all(path); }

   const std::string path;
};

// Ends with this process, however this one ends.
class Child {
 public:
   // `run` does not return, or the process has failed. `endingSignal` ends it.
   template <class Run>
   explicit Child(Run run, int endingSignal = SIGKILL) : id_(fork()), endingSignal_(endingSignal) {
      if (id_ == 0) {
         prctl(PR_SET_PDEATHSIG, SIGKILL);
         run();
         _exit(127);
      }
   }
   Child(const Child&) = delete;
   Child& operator=(const Child&) = delete;
   ~Child() {
      kill(id_, endingSignal_);
      waitpid(id_, nullptr, 0);
   }

   // Of what the system tells of it.
   std::string procFile(const std::string& name) const { return "/proc/" + std::to_string(id_) + "/" + name; }

 private:
   pid_t id_;
   int endingSignal_;
};

} // namespace Bench
