// Puts a new file in the place of a table's, or takes one back, for its living writer.
#pragma once

#include "silo/Store.h"

#include <cstddef>
#include <functional>
#include <string>

namespace Silo {

// `mapping` becomes that of a new file of so many bytes, and takes the name once `fill` has written its content. `fill`
// gets the old mapping, of which parts may be gone: it reads through Mapping::copyFromFile. Readers of the old file are
// sent to the name. Throws what the system or the store refuses, and then all is as it was.
void replaceFile(const Store& store, const std::string& table, Mapping& mapping, std::size_t size,
                 const std::function<void(const Mapping& old)>& fill);

// Removes the file that the writer made. What has the name by now may be another's, and stays. So does a file that cannot
// be removed: nothing is thrown.
void removeOwnFile(const Store& store, const std::string& table, const Mapping& mapping);

} // namespace Silo
