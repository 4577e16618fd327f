// The history file: one line an entry, appended to as lines are entered, and cut back when a session starts.
// libedit's own function rewrites the whole file, and so would lose what other sessions have added.
#include "apps/zelctl/prompt/History.h"

#include "apps/zelctl/terminal/Utf8.h"
#include "kiln/TrustedFile.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <histedit.h>
#include <new>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace ZelCtl {

namespace {

using Kiln::String;

constexpr mode_t ownerOnly = 0600;

// Returns whether the whole text was written. It goes out in one write(): with O_APPEND, lines of sessions that run
// at the same time do not mix, so the file needs no lock.
bool append(const Kiln::OwnedFd& file, const String& text) {
   return fcntl(file.fd(), F_SETFL, O_APPEND) == 0 &&
          // A file that already existed may be readable by others.
          fchmod(file.fd(), ownerOnly) == 0 &&
          ::write(file.fd(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

} // namespace

History::History(String path) : path_(std::move(path)), lines_(history_init(), history_end) {
   HistEvent event;
   if (lines_ == nullptr || history(lines_.get(), &event, H_SETSIZE, static_cast<int>(limit)) < 0 ||
       history(lines_.get(), &event, H_SETUNIQUE, 1) < 0) {
      throw std::bad_alloc();
   }
   if (!path_.empty()) {
      load();
   }
}

void History::load() {
   constexpr std::size_t slack = 2; // the file is cut back when it is longer than this many times the limit
   try {
      if (access(path_.c_str(), F_OK) != 0) {
         return;
      }
      const Kiln::OwnedFd opened = Kiln::openOwnFile(path_, ownerOnly).file;
      // What was looked at, and not what has the name by now.
      std::ifstream file("/proc/self/fd/" + std::to_string(opened.fd()));
      std::size_t inFile = 0;
      for (String line; std::getline(file, line); ++inFile) {
         // The file may have been edited by hand; control characters must not reach the terminal.
         if (!line.empty() && printable(line) == line) {
            enter(line);
         }
      }
      if (inFile > slack * limit) {
         rewrite();
      }
   } catch (const Kiln::UntrustedFile& error) {
      problem_ = error.what();
      path_.clear();
   } catch (const std::system_error&) { // then without
   }
}

// Returns false if the line repeats the last one.
bool History::enter(const String& line) {
   HistEvent event;
   return history(lines_.get(), &event, H_ENTER, line.c_str()) > 0;
}

std::vector<String> History::lines() const {
   std::vector<String> all;
   HistEvent event;
   for (int found = history(lines_.get(), &event, H_LAST); found >= 0;
        found = history(lines_.get(), &event, H_PREV)) {
      all.emplace_back(event.str);
   }
   return all;
}

void History::rewrite() const {
   String text;
   for (const String& line : lines()) {
      text += line + "\n";
   }
   // Written aside and renamed, so that no session ever reads half a file.
   const String fresh = path_ + "." + std::to_string(getpid());
   const Kiln::OpenedFile opened = Kiln::openOwnFile(fresh, ownerOnly);
   if (!opened.isNew || !append(opened.file, text) || rename(fresh.c_str(), path_.c_str()) != 0) {
      unlink(fresh.c_str());
   }
}

void History::add(const String& line) {
   if (line.find_first_not_of(' ') == String::npos || !enter(line) || path_.empty()) {
      return;
   }
   const std::filesystem::path folder = std::filesystem::path(path_).parent_path();
   std::error_code error;
   if (std::filesystem::create_directories(folder, error)) {
      std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
   }
   try {
      append(Kiln::openOwnFile(path_, ownerOnly).file, line + "\n");
   } catch (const std::runtime_error&) { // then only for this session
   }
}

String History::defaultPath() {
   const auto variable = [](const char* name) {
      const char* const value = std::getenv(name);
      return value != nullptr && value[0] == '/' ? String(value) : String();
   };
   if (const String state = variable("XDG_STATE_HOME"); !state.empty()) {
      return state + "/zelctl/history";
   }
   const String home = variable("HOME");
   return home.empty() ? home : home + "/.local/state/zelctl/history";
}

} // namespace ZelCtl
