// Takes a word apart at its commas, each part at its dash, and finds the stem that a short form stands for.
#include "kiln/NameChoice.h"

#include "kiln/Choices.h"
#include "kiln/Numbered.h"
#include "kiln/Numbers.h"

#include <algorithm>
#include <set>

namespace Kiln {

namespace {

constexpr std::string_view digits = "0123456789";

class Chooser {
 public:
   explicit Chooser(const std::vector<String>& known) : known_(known) {}

   NameChoice take(std::string_view word) {
      for (std::string_view left = word; choice_.error.empty();) {
         const std::size_t comma = left.find(',');
         takePart(left.substr(0, comma));
         if (comma == std::string_view::npos) {
            break;
         }
         left.remove_prefix(comma + 1);
      }
      if (!choice_.error.empty()) {
         choice_.names.clear();
      }
      return choice_;
   }

 private:
   bool isKnown(std::string_view name) const { return std::ranges::find(known_, name) != known_.end(); }

   void add(const String& name) {
      if (taken_.insert(name).second) {
         choice_.names.push_back(name);
      }
   }

   // The name in full as it would be if it were known; empty, with the error, for a short form of several stems.
   String inFull(std::string_view part) {
      const bool isNumber = !part.empty() && part.find_first_not_of(digits) == std::string_view::npos;
      if (isNumber && !stem_.empty()) {
         return stem_ + String(part);
      }
      const std::size_t letters = std::min(part.find_first_of(digits), part.size());
      const std::string_view shortStem = part.substr(0, letters);
      std::vector<String> stems;
      for (const String& name : known_) {
         const String stem = name.substr(0, name.find_first_of(digits));
         if (stem == shortStem) {
            return String(part);
         }
         if (letters > 0 && letters < part.size() && stem.size() < name.size() &&
             stem.starts_with(shortStem) && std::ranges::find(stems, stem) == stems.end()) {
            stems.push_back(stem);
         }
      }
      if (stems.size() == 1) {
         return stems.front() + String(part.substr(letters));
      }
      std::vector<String> meant;
      for (const String& stem : stems) {
         if (isKnown(stem + String(part.substr(letters)))) {
            meant.push_back(stem + String(part.substr(letters)));
         }
      }
      if (meant.size() > 1) {
         choice_.error = "interface " + quoted(part) + " is ambiguous: expected " + choices(meant);
      }
      return meant.size() == 1 ? meant.front() : String(part);
   }

   void takePart(std::string_view part) {
      if (isKnown(part)) {
         add(String(part));
         stem_ = Numbered(part).stem;
         return;
      }
      const std::size_t dash = part.rfind('-');
      if (dash != std::string_view::npos && dash > 0 && dash + 1 < part.size()) {
         takeRange(part, part.substr(0, dash), part.substr(dash + 1));
         return;
      }
      const String name = inFull(part);
      if (choice_.error.empty() && !isKnown(name)) {
         choice_.error = unknownInterface(name, known_);
      }
      stem_ = Numbered(name).stem;
      add(name);
   }

   void takeRange(std::string_view part, std::string_view from, std::string_view to) {
      const Numbered first(inFull(from));
      stem_ = first.stem;
      const Numbered last(inFull(to));
      if (!choice_.error.empty()) {
         return;
      }
      if (!first.isNumbered || !last.isNumbered || first.stem != last.stem || first.stem.empty()) {
         choice_.error = unknownInterface(String(part), known_);
         return;
      }
      if (first.number > last.number) {
         choice_.error = "the range " + quoted(part) + " runs backwards: expected " + first.stem +
                         std::to_string(last.number) + "-" + std::to_string(first.number);
         return;
      }
      bool isEmpty = true;
      for (const String& name : known_) {
         const Numbered one(name);
         if (one.isNumbered && one.stem == first.stem && one.number >= first.number &&
             one.number <= last.number) {
            add(name);
            isEmpty = false;
         }
      }
      if (isEmpty) {
         choice_.error = "no interface is in the range " + quoted(part) + ": expected " + nameRanges(known_);
      }
   }

   const std::vector<String>& known_;
   NameChoice choice_;
   std::set<String> taken_;
   String stem_; // of the name before
};

} // namespace

NameChoice chooseNames(std::string_view word, const std::vector<String>& known) {
   if (std::ranges::find(known, word) != known.end()) {
      return {{String(word)}, ""};
   }
   return Chooser(known).take(word);
}

std::vector<String> continuedNames(std::string_view begun, const std::vector<String>& known) {
   const std::size_t comma = begun.rfind(',');
   const std::size_t from = comma == std::string_view::npos ? 0 : comma + 1;
   const std::size_t dash = begun.find('-', from);
   const bool isRange = dash != std::string_view::npos;
   if (from == 0 && !isRange) {
      return {};
   }
   // What is typed already must stand for names, the last of which tells the stem, and where a range begins.
   const std::size_t end = isRange ? dash : comma;
   const NameChoice before = chooseNames(begun.substr(0, end), known);
   if (!before.error.empty()) {
      return {};
   }
   const Numbered last(before.names.back());
   const String head(begun.substr(0, end + 1));
   std::vector<String> words;
   for (const String& name : known) {
      const Numbered one(name);
      const bool isOfStem = last.isNumbered && one.isNumbered && one.stem == last.stem;
      const bool isTaken = std::ranges::find(before.names, name) != before.names.end();
      if (isRange ? isOfStem && one.number > last.number : isOfStem && !isTaken) {
         words.push_back(head + std::to_string(one.number));
      }
      if (!isRange && !isTaken && !(isOfStem && begun.size() == from)) { // its number is enough
         words.push_back(head + name);
      }
   }
   std::erase_if(words, [&](const String& word) { return !word.starts_with(begun); });
   return words;
}

} // namespace Kiln
