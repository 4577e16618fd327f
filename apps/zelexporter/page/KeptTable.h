// A shared table that is read again and again, by a program that may be there before the table.
#pragma once

#include "silo/TableReader.h"

#include <optional>
#include <string>
#include <vector>

namespace ZelExporter {

// Keeps the reader, and the memory of its records. One thread at a time.
template <Silo::RecordType Record>
class KeptTable {
 public:
   explicit KeptTable(const char* name) : name_(name) {}

   // Replaces the entries by those of now; there are none if the table cannot be read, and problem() says why.
   void read(const Silo::Store& store) {
      problem_.clear();
      try {
         if (!reader_) {
            reader_.emplace(store, name_);
         }
         if (!reader_->snapshot(entries_)) {
            problem_ = reader_->problem();
         }
      } catch (const std::exception& error) {
         entries_.clear();
         problem_ = error.what();
      }
   }

   const std::vector<Silo::Entry<Record>>& entries() const { return entries_; }
   const std::string& problem() const { return problem_; } // empty: none
   // Null until the table could be read once.
   Silo::TableReader<Record>* reader() { return reader_ ? &*reader_ : nullptr; }
   bool isWriterAlive() { return reader_ && reader_->isWriterAlive(); }

 private:
   const char* name_;
   std::optional<Silo::TableReader<Record>> reader_;
   std::vector<Silo::Entry<Record>> entries_;
   std::string problem_;
};

} // namespace ZelExporter
