// The lines that were entered at the prompt, kept from one session to the next.
#pragma once

#include "kiln/Types.h"

#include <memory>
#include <vector>

struct history;

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

   std::vector<Kiln::String> lines() const; // oldest first

   // The same, as the line editor walks them.
   struct history* list() {
      return lines_.get();
   }

   // zelctl/history below $XDG_STATE_HOME, else below ~/.local/state; empty when neither is an absolute path.
   static Kiln::String defaultPath();

 private:
   void load();
   void rewrite() const;
   bool enter(const Kiln::String& line);

   Kiln::String path_;
   std::unique_ptr<struct history, void (*)(struct history*)> lines_;
};

} // namespace ZelCtl
