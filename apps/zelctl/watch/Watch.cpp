// The rounds of a watch: their pace, their errors, and the screen that they are drawn on.
#include "apps/zelctl/watch/Watch.h"

#include "apps/zelctl/terminal/Terminal.h"
#include "apps/zelctl/terminal/Utf8.h"
#include "apps/zelctl/watch/WatchText.h"
#include "kiln/Choices.h"
#include "kiln/Time.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <iostream>
#include <unistd.h>

namespace ZelCtl {

namespace {

using Kiln::String;

constexpr int screenPatience = 3; // seconds without a byte from the agent

String clockText() {
   const std::time_t now = std::time(nullptr);
   std::tm parts{};
   localtime_r(&now, &parts);
   char text[16];
   std::strftime(text, sizeof text, "%H:%M:%S", &parts);
   return text;
}

String secondsText(double seconds) {
   char text[32];
   std::snprintf(text, sizeof text, seconds < 1 ? "%.2f s" : "%.1f s", seconds);
   return text;
}

// The alternate screen, without a cursor. The destructor restores the terminal.
class Screen {
 public:
   Screen() { writeOut("\x1b[?1049h\x1b[?25l", nullptr); }
   Screen(const Screen&) = delete;
   Screen& operator=(const Screen&) = delete;
   ~Screen() { writeOut("\x1b[?25h\x1b[?1049l", nullptr); }

   bool hasKeys() const { return keys_.isOn(); }

 private:
   KeyMode keys_;
};

class Watcher {
 public:
   Watcher(const WatchRequest& request, const FetchRound& fetch, Signals* signals)
        : request_(request), fetch_(fetch), signals_(signals), isScreen_(ZelCtl::isScreen()) {}

   int run() {
      int status = 0;
      // A round that took longer than the interval delays those after it; they don't crowd to catch up.
      for (double due = Kiln::System::monotonicTime(); !isOver_;
           due = std::max(due, Kiln::System::monotonicTime())) {
         status = runRound();
         due += request_.interval;
         pauseUntil(due);
      }
      if (screen_) {
         screen_.reset();
         // The alternate screen is gone with its text; leave the last picture on the normal one.
         writeOut(picture_ + "\n", nullptr);
      }
      return signals_->ending() != 0 ? 128 + signals_->ending() : status;
   }

 private:
   int runRound() {
      WatchRound round = fetch_(patience());
      if (signals_->isBreaking()) {
         isOver_ = true;
         return 0;
      }
      error_ = round.error;
      // A person sees that it is tried again; a program reading the rounds would take it for counters that stand
      // still.
      if (!error_.empty() && (!isScreen_ || !lastRound_)) {
         std::cerr << error_ << '\n';
         isOver_ = true;
         return 1;
      }
      if (error_.empty()) {
         const double now = Kiln::System::monotonicTime();
         sinceLast_ = lastRound_ ? now - *lastRound_ : 0;
         lastRound_ = now;
         tables_ = changes_.compare(round.tables);
         heading_ = printable(Kiln::joined(request_.words, " ")) + ", " + clockText() +
                    (sinceLast_ > 0 ? ", " + secondsText(sinceLast_) + " after the previous round" : "");
      }
      return show();
   }

   // A screen soon says that the agent does not answer, so that its counts do not pass for new ones. The first round,
   // which has no screen yet, and rounds to a file wait as long as a plain command does.
   Patience patience() const {
      return screen_ ? Patience{.perByte = screenPatience, .endsByKey = screen_->hasKeys(), .isSaid = false}
                     : Patience{};
   }

   int show() {
      Written written{};
      if (isScreen_) {
         if (!screen_) {
            screen_.emplace();
         }
         drawPicture();
         // Drawn over the old picture, and only then is the rest erased: clearing first would flicker.
         written = writeOut("\x1b[H" + picture_ + "\x1b[J", signals_);
      } else {
         String text = "--- " + heading_ + "\n";
         for (const String& line : layOut(tables_, {})) {
            text += line + "\n";
         }
         written = writeOut(text + "\n", signals_);
      }
      isOver_ = written != Written::all;
      if (written == Written::failed) {
         std::cerr << "% cannot write the table: " << std::strerror(errno) << '\n';
         return 1;
      }
      return 0;
   }

   void drawPicture() {
      const TerminalSize size = terminalSize();
      const std::size_t frame = 2; // lines: the heading, and one for an error
      std::vector<String> lines{"\x1b[7m" + cutTo(heading_ + "; q ends", size.width) + "\x1b[0m"};
      for (String& line :
           layOut(tables_, {size.width, std::max<std::size_t>(size.height, 4) - frame, true})) {
         lines.push_back(std::move(line));
      }
      if (!error_.empty()) {
         lines.push_back("\x1b[1m" + cutTo("(trying again) " + error_, size.width) + "\x1b[0m");
      }
      picture_.clear();
      for (const String& line : lines) {
         picture_ += (picture_.empty() ? "" : "\n") + line + "\x1b[K";
      }
   }

   void pauseUntil(double due) {
      bool isDue = false;
      while (!isOver_ && !isDue) { // keys and signals are looked at even if the next round is due already
         const double left = std::max(0.0, due - Kiln::System::monotonicTime());
         isDue = left == 0;
         const Woken woken = waitFor(signals_, screen_ && screen_->hasKeys(), left);
         isOver_ = woken.readerGone || signals_->isBreaking() || (woken.byKeys && readsEndKey());
         if (!isOver_ && screen_ && signals_->takeResize()) {
            show();
         }
      }
   }

   const WatchRequest& request_;
   const FetchRound& fetch_;
   Signals* signals_;
   bool isScreen_;
   std::optional<Screen> screen_; // from the first successful round on
   WatchChanges changes_;
   std::vector<WatchedTable> tables_;
   std::optional<double> lastRound_; // on the monotonic clock
   double sinceLast_ = 0;
   String heading_;
   String error_;
   String picture_;
   bool isOver_ = false;
};

} // namespace

int runWatch(const WatchRequest& request, const FetchRound& fetch, Signals* signals) {
   const int status = Watcher(request, fetch, signals).run();
   // The Ctrl-C that ended the watch must not also drop a line at the prompt.
   signals->takeInterrupt();
   return status;
}

} // namespace ZelCtl
