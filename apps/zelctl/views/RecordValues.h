// What text and JSON take alike from a record.
#pragma once

#include "apps/zelctl/views/RecordRequest.h"

namespace ZelCtl {

// The reading if the request is for the chip's own counts, otherwise the total.
U64 countOf(const Vex::NamedCounter& counter, const RecordRequest& request);

// The use of the line in a direction, "in" or "out"; none if it is not known.
std::optional<U64> usePerMille(const PublishedRow& row, std::string_view direction);

// Steps above what the port's speed allows; none if nothing is known of them over the span.
std::optional<U64> suspectsOf(const PublishedRow& row);

// Seconds since one of the record's times; none for one that is 0, yet to come, or of a clock that is not this one.
std::optional<double> secondsSince(const PublishedRow& row, const PublishedTable& table, double time);

// The queues or places that the row has counters of.
std::vector<Kiln::String> placesOf(const PublishedRow& row, const Places& places);
// What the counters of one of them begin with; without one, nothing.
Kiln::String prefixOf(const Places& places, const Kiln::String& place);

// What is to be said below the rows.
std::vector<Kiln::String> notesOf(const RecordRequest& request, const PublishedTable& table,
                                  const std::vector<const PublishedRow*>& rows);

} // namespace ZelCtl
