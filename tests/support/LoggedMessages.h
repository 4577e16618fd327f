// The messages that operators get.
#pragma once

#include "kiln/OperatorLog.h"

#include <string>
#include <vector>

namespace ZelTest {

// The operator log's messages since the object's construction, or since the last take().
class LoggedMessages {
 public:
   LoggedMessages() { take(); }

   // Oldest first, each as "ID text".
   std::vector<std::string> take() {
      std::vector<std::string> messages;
      for (const auto& entry : Kiln::OperatorLog::instance().newEntries()) {
         messages.push_back(std::string(entry.message->id) + " " + entry.text);
      }
      return messages;
   }
};

} // namespace ZelTest
