// The terminal: what it is, how its keys come in, and how text gets out.
#pragma once

#include "apps/zelctl/terminal/Signals.h"
#include "kiln/Types.h"

#include <string_view>
#include <termios.h>

namespace ZelCtl {

struct TerminalSize {
   std::size_t width = 80;
   std::size_t height = 24;
};

TerminalSize terminalSize();

// Whether standard output is a terminal that understands more than lines of text.
bool isScreen();

// Keys come one by one and unseen while it lives, Ctrl-C and its like as signals; then the terminal is as it
// was. Does nothing without a terminal on standard input.
class KeyMode {
 public:
   KeyMode();
   KeyMode(const KeyMode&) = delete;
   KeyMode& operator=(const KeyMode&) = delete;
   ~KeyMode();

   bool isOn() const { return isOn_; }

 private:
   termios former_{};
   bool isOn_ = false;
};

enum class Written : U8 { all, readerGone, interrupted, failed };

// Writes to standard output. `signals` may be null; with them, Ctrl-C ends it. What failed is in errno.
Written writeOut(std::string_view text, Signals* signals);

struct Woken {
   bool byKeys = false;
   bool readerGone = false; // from standard output
   // Neither: the time is over, or a signal came.
};

// Waits up to so many seconds; below 0 for as long as it takes. Keys are standard input.
Woken waitFor(Signals* signals, bool keys, double seconds);

// Reads one key, which has to be there: whether it ends what is shown, as 'q' does and as the end of the keys
// does.
bool readsEndKey();

} // namespace ZelCtl
