// Makes the new file beside the old one, which keeps its name until the new one is whole.
#include "silo/FileSuccessor.h"

#include "silo/Errors.h"
#include "silo/TableHeader.h"

#include <utility>

namespace Silo {

void replaceFile(const Store& store, const std::string& table, Mapping& mapping, std::size_t size,
                 const std::function<void(const Mapping& old)>& fill) {
   // Where the name is gone or another's, it has to be won first: another agent may have begun to write there.
   const Mapping claim = store.isNamed(table, mapping) ? Mapping() : store.openForWriting(table).mapping;
   Mapping other = store.openSuccessor(table);
   std::swap(mapping, other); // from here on, `other` is the old one
   try {
      mapping.grow(size);
      fill(other);
      store.promoteSuccessor(table);
   } catch (...) {
      std::swap(mapping, other);
      store.removeSuccessor(table); // what takes the last space of a disk helps nobody
      throw;
   }
   other.remap(); // what is lost of it would not reach the readers
   if (other.size() >= sizeof(TableHeader)) {
      reinterpret_cast<TableHeader*>(other.data())->retire();
   }
}

void removeOwnFile(const Store& store, const std::string& table, const Mapping& mapping) {
   try {
      if (store.isNamed(table, mapping)) {
         store.remove(table);
      }
   } catch (const TableError&) { // then it stays, whole and empty
   }
}

} // namespace Silo
