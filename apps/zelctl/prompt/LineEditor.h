// A line typed at the terminal, edited by libedit.
#pragma once

#include "apps/zelctl/prompt/History.h"
#include "apps/zelctl/terminal/Signals.h"

#include <cwchar>
#include <functional>
#include <optional>

struct editline;

namespace ZelCtl {

// Standard input and output have to be a terminal. While a line is being typed keys come one by one, Ctrl-C
// among them; between lines the terminal is as it was. One at a time. From its construction on, the process has
// the characters of C.UTF-8.
class LineEditor {
 public:
   // The words that the last one of an unfinished line may become, or that may follow it after a blank.
   using Candidates = std::function<std::vector<Kiln::String>(const Kiln::String& unfinished)>;

   // Signals and history have to outlive the editor. std::runtime_error when there is no editing here.
   LineEditor(Kiln::String prompt, Signals* signals, History* history, Candidates candidates);
   LineEditor(const LineEditor&) = delete;
   LineEditor& operator=(const LineEditor&) = delete;
   ~LineEditor();

   // Without its end; empty for one that Ctrl-C dropped. None when no more will come: after Ctrl-D, a signal
   // to end, or when the terminal is gone.
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
   std::mbstate_t unfinishedKey_{}; // of several bytes
   bool isDropped_ = false;
};

} // namespace ZelCtl
