// `zelctl interfaces` and its kin: the views, their keywords, and a request read from the words of a command.
#pragma once

#include "apps/zelctl/views/PastSamples.h"
#include "apps/zelctl/views/Since.h"

#include <array>
#include <span>

namespace ZelCtl {

// A column of a list: one counter of the record, or of a queue or place in it.
struct Column {
   std::string_view counter;
   std::string_view heading;
   std::string_view rateHeading;
   unsigned rateFactor = 1; // from the counter's unit to the rate heading's: 8 from octets to bits
   // Instead of the count: its rate, or the use of the line in percent. A list of rates, or a watch, which has rates
   // anyway, leaves out the former. Or one of the record's words, or the age of one of its times.
   enum class Shows : U8 { count, rate, use, word, age } shows = Shows::count;
};

// What a view's records are of.
struct Subject {
   std::string_view heading;
   std::string_view json; // of their list
   std::string_view help; // stands for a name
};
inline constexpr Subject ofInterfaces{"Interface", "interfaces", "INTF"};
inline constexpr Subject ofPipes{"Pipe", "pipes", "PIPE"};
inline constexpr Subject ofChips{"Chip", "chips", "CHIP"};

// What a list has a line for each of, in a record.
struct Places {
   std::string_view prefix; // of its counters; empty for one line for the record
   std::string_view heading;
   std::string_view json; // of their activities
};

struct TimeColumn {
   std::string_view time;
   std::string_view heading;
};

enum Keywords : unsigned { nonzero = 1, rates = 2, errors = 4, raw = 8, exact = 16, json = 32, since = 64 };

struct View {
   std::string_view command;
   std::string_view help;
   unsigned takes; // its Keywords
   PublishedTable (*read)(const Silo::Store& store, const char* table);
   const char* table;
   std::span<const Column> columns;
   std::span<const Column> errorColumns;
   TimeColumn time;
   Places places;
   bool hasMore; // records have more counters than the list shows: a named interface is shown whole
   const char* clearTable = nullptr;      // null if nothing can be cleared
   std::optional<PastTable::Kind> past{}; // which history there is; none for none
   Subject subject = ofInterfaces;
};

std::span<const View> views();
// Null when no view has the name.
const View* viewNamed(std::string_view command);
// The view's keywords, in the order of the help text.
std::vector<Kiln::String> keywordsOf(const View& view);

struct RecordRequest {
   const View* view = nullptr;
   unsigned keywords = 0;
   std::vector<Kiln::String> names;
   std::optional<Since> span{}; // if `since` is asked for

   bool has(unsigned keyword) const { return (keywords & keyword) != 0; }
};

// The first word must be a view's. Any other word is the name of an interface in the view's table, else a keyword or
// an unambiguous abbreviation of one, else a short form, a range or a list of names. After `intf` or `interface` a word
// is no keyword. Throws std::runtime_error for any other word, saying what it may have been meant to be, or listing the
// names and keywords there are.
RecordRequest parseRecordRequest(const std::vector<Kiln::String>& words, const PublishedTable& table);

// Whether an interface's name follows the word, and no keyword; not if the word is one itself.
bool isInterfaceWord(const Kiln::String& word, const std::vector<Kiln::String>& known);

// The rows that the request asks for.
std::vector<const PublishedRow*> selectRows(const RecordRequest& request, const PublishedTable& table);

} // namespace ZelCtl
