// The lines that were entered at the prompt, kept from one session to the next.
#pragma once

#include "kiln/Types.h"

#include <memory>
#include <vector>

struct history;

namespace ZelCtl {

// Sessions that run at the same time all append to one file, and each reads what the others have added when it
// starts. A file that cannot be read or written is ignored: history is a convenience. So is one that is not this user's
// own, but that is told.
class History {
 public:
   static constexpr std::size_t limit = 500; // lines

   // With an empty path, lines are kept for this session only. Throws std::bad_alloc.
   explicit History(Kiln::String path);

   // Adds the line, unless it is blank or repeats the last one.
   void add(const Kiln::String& line);

   std::vector<Kiln::String> lines() const; // oldest first

   // Why the file is left alone; empty if it is not.
   const Kiln::String& problem() const { return problem_; }

   // The same lines, in the form that the line editor takes.
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
   Kiln::String problem_;
   std::unique_ptr<struct history, void (*)(struct history*)> lines_;
};

} // namespace ZelCtl
