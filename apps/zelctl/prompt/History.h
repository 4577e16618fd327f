// The lines that were entered at the prompt, kept from one session to the next.
#pragma once

#include "kiln/Types.h"

#include <vector>

namespace ZelCtl {

// Sessions that run side by side all add to the file; each sees what the others added when it begins. What
// can't be read or written is no error: history is a convenience.
class History {
 public:
   static constexpr std::size_t limit = 500; // lines

   // An empty path keeps lines for this session only.
   explicit History(Kiln::String path);

   // Not if it is blank or repeats the last one.
   void add(const Kiln::String& line);

   const std::vector<Kiln::String>& lines() const { return lines_; } // oldest first

   // zelctl/history below $XDG_STATE_HOME, else below ~/.local/state; empty when neither is an absolute path.
   static Kiln::String defaultPath();

 private:
   void load();
   void rewrite() const;

   Kiln::String path_;
   std::vector<Kiln::String> lines_;
};

} // namespace ZelCtl
