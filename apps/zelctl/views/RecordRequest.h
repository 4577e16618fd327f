// What `zelctl interfaces` and its kin can be asked for: the views, their keywords, and one request read from
// words.
#pragma once

#include "apps/zelctl/views/PublishedRows.h"

#include <array>
#include <span>

namespace ZelCtl {

// A column of a list: one counter of the record, or of the queue.
struct Column {
   std::string_view counter;
   std::string_view heading;
   std::string_view rateHeading;
   unsigned rateFactor = 1; // to the unit of the rate's heading
};

struct TimeColumn {
   std::string_view time;
   std::string_view heading;
};

enum Keywords : unsigned { nonzero = 1, rates = 2, errors = 4, raw = 8, json = 16 };

struct View {
   std::string_view command;
   std::string_view help;
   unsigned takes; // keywords
   PublishedTable (*read)(const Silo::Store& store, const char* table);
   const char* table;
   std::span<const Column> columns;
   std::span<const Column> errorColumns;
   TimeColumn time;
   bool isByQueue; // a line of the list for each queue
   bool hasMore;   // than a list shows: interfaces that are named are shown whole
};

std::span<const View> views();
// Null when no view has the name.
const View* viewNamed(std::string_view command);
// The view's keywords, in the order in which help names them.
std::vector<Kiln::String> keywordsOf(const View& view);

struct RecordRequest {
   const View* view = nullptr;
   unsigned keywords = 0;
   std::vector<Kiln::String> names;

   bool has(unsigned keyword) const { return (keywords & keyword) != 0; }
};

// The first word has to be a view's. A word that no interface of the view's table has for its name is a
// keyword, or the beginning of a single one. What is neither is a std::runtime_error that says which there
// are.
RecordRequest parseRecordRequest(const std::vector<Kiln::String>& words, const PublishedTable& table);

// The rows that are asked for.
std::vector<const PublishedRow*> selectRows(const RecordRequest& request, const PublishedTable& table);

} // namespace ZelCtl
