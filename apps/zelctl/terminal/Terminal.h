// The terminal: its size and kind, keys from it, and text to it.
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

// Standard output's size; 80 x 24 where it is unknown.
TerminalSize terminalSize();

// Whether standard output is a terminal that understands escape sequences.
bool isScreen();

// As long as it lives, keys are read one by one and not echoed, while Ctrl-C and Ctrl-\ still send signals. Its end
// restores the terminal's mode. Does nothing if standard input is not a terminal.
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

// Writes to standard output. `signals` may be null; otherwise Ctrl-C or a signal to end stops it. After
// Written::failed, errno says why.
Written writeOut(std::string_view text, Signals* signals);

// Why a wait ended. If neither is set, the time is over or a signal came.
struct Woken {
   bool byKeys = false;
   bool readerGone = false; // standard output has no reader any more
};

// Waits up to so many seconds, or without a limit if negative, for a signal, or with `keys` for standard input.
// `signals` may be null.
Woken waitFor(Signals* signals, bool keys, double seconds);

// Reads one key; call it only after a wait ended by keys. Returns whether to end the watch: at 'q', and at the end
// of standard input.
bool readsEndKey();

} // namespace ZelCtl
