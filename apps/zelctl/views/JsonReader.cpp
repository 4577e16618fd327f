// Adds the checks that nlohmann's reader doesn't have.
#include "apps/zelctl/views/JsonReader.h"

#include "apps/zelctl/terminal/Utf8.h"

#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <vector>

namespace ZelCtl {

namespace {

using Kiln::String;

[[noreturn]] void refuse(const String& problem) {
   throw std::runtime_error("it " + problem);
}

// Checks a document before it is built. The library itself would accept any depth until memory runs out, round
// counts that are too big to a double, and silently keep the last of two equal keys.
class Gate final : public nlohmann::json_sax<Json> {
 public:
   bool null() override { return true; }
   bool boolean(bool /*value*/) override { return true; }
   bool number_unsigned(number_unsigned_t /*value*/) override { return true; }
   bool number_integer(number_integer_t /*value*/) override { refuseNumber(); }
   bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { refuseNumber(); }
   bool string(string_t& /*value*/) override { return true; }
   bool binary(binary_t& /*value*/) override { return true; }

   bool start_object(std::size_t /*size*/) override { return descend(); }
   bool end_object() override { return ascend(); }
   bool start_array(std::size_t /*size*/) override { return descend(); }
   bool end_array() override { return ascend(); }
   bool key(string_t& name) override {
      if (!levels_.back().insert(name).second) {
         refuse("has " + printable(name) + " twice in one object");
      }
      return true;
   }

   bool parse_error(std::size_t byte, const std::string& /*token*/,
                    const nlohmann::json::exception& /*error*/) override {
      refuse("is not JSON at byte " + std::to_string(byte));
   }

 private:
   [[noreturn]] static void refuseNumber() { refuse("has a number that is not an unsigned 64-bit integer"); }
   bool descend() {
      if (levels_.size() == jsonDepth) {
         refuse("nests deeper than " + std::to_string(jsonDepth) + " levels");
      }
      levels_.emplace_back();
      return true;
   }
   bool ascend() {
      levels_.pop_back();
      return true;
   }

   std::vector<std::set<String>> levels_; // of each open object or list, the keys so far; a list has none
};

} // namespace

Json readJson(std::string_view text) {
   Gate gate;
   Json::sax_parse(text, &gate);
   return Json::parse(text);
}

} // namespace ZelCtl
