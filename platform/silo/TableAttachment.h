// A reader's hold on a table's file: found by name, and found again whenever the writer replaces it.
#pragma once

#include "silo/Record.h"
#include "silo/Store.h"
#include "silo/TableHeader.h"

#include <cstddef>
#include <functional>
#include <string>

namespace Silo {

class TableAttachment {
 public:
   // The bytes that a file with this header and state needs; 0 if its header is damaged.
   using SizeFor = std::function<std::size_t(const Mapping&, const TableState&)>;

   TableAttachment(Store store, std::string name, const RecordLayout& layout, SizeFor sizeFor)
        : store_(std::move(store)), name_(std::move(name)), layout_(layout), sizeFor_(std::move(sizeFor)) {}

   // Opens the table. Throws TableError, naming it, if it is not there or cannot be read.
   void attach();
   // Makes sure that the mapping is the table that has the name now; one load in the usual case. A thorough look asks the
   // system too. False: it is not there, and problem() says why. `hasChanged` is set if it was attached anew.
   bool refresh(bool isThorough, bool& hasChanged);

   const Mapping& mapping() const { return mapping_; } // empty: not attached
   const TableHeader& header() const { return *reinterpret_cast<const TableHeader*>(mapping_.data()); }
   const TableState& state() const { return state_; } // or what it was, while there is none
   const std::string& problem() const { return problem_; }
   void problemIs(std::string problem) { problem_ = std::move(problem); }
   std::string describe() const { return store_.describe(name_); }

 private:
   const Store store_;
   const std::string name_;
   const RecordLayout layout_;
   const SizeFor sizeFor_;

   Mapping mapping_;
   std::uint64_t stateSequence_ = 0;
   TableState state_;
   std::string problem_;
};

} // namespace Silo
