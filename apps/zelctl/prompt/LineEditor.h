// Reads lines at a terminal, edited by libedit.
#pragma once

#include "apps/zelctl/prompt/History.h"
#include "apps/zelctl/terminal/Signals.h"

#include <cwchar>
#include <functional>
#include <optional>

struct editline;

namespace ZelCtl {

// Standard input and output must be a terminal. While a line is being typed, keys arrive one by one, including
// Ctrl-C; between lines the terminal is in its former mode. There may be only one editor at a time. Its
// construction sets the process's LC_CTYPE to C.UTF-8 for good.
class LineEditor {
 public:
   // Given an unfinished line, returns the words that its last word may become, or that may follow if the line ends
   // in a blank.
   using Candidates = std::function<std::vector<Kiln::String>(const Kiln::String& unfinished)>;

   // Signals and history must outlive the editor. Throws std::runtime_error if the terminal does not support editing.
   LineEditor(Kiln::String prompt, Signals* signals, History* history, Candidates candidates);
   LineEditor(const LineEditor&) = delete;
   LineEditor& operator=(const LineEditor&) = delete;
   ~LineEditor();

   // Returns the line without its newline; empty if Ctrl-C dropped it. Returns none when there will be no more
   // lines: after Ctrl-D, after a signal to end, or when the terminal is gone.
   std::optional<Kiln::String> readLine();

 private:
   static LineEditor& of(editline* line);
   void bindKeys();
   int readKey(wchar_t* key);
   unsigned char complete();
   unsigned char drop();
   unsigned char suspend();

   Kiln::String prompt_;
   Signals* signals_;
   Candidates candidates_;
   editline* line_;
   std::mbstate_t unfinishedKey_{}; // a character whose last bytes have not arrived
   bool isDropped_ = false;
};

} // namespace ZelCtl
