// Reads line by line.
#include "tests/apps/metrics/ReadScrape.h"

#include <regex>
#include <set>
#include <stdexcept>

namespace ZelTest {

namespace {

using Kiln::String;

// The text of one line, taken from the front.
class Line {
 public:
   explicit Line(const String& text) : text_(text) {}

   [[noreturn]] void refuse(const String& why) const { throw std::runtime_error(why + ": " + text_); }
   void need(bool holds, const String& why) const {
      if (!holds) {
         refuse(why);
      }
   }
   bool take(std::string_view start) {
      const bool isThere = text_.compare(at_, start.size(), start) == 0;
      at_ += isThere ? start.size() : 0;
      return isThere;
   }
   String name() {
      const std::size_t begin = at_;
      while (at_ < text_.size() &&
             (std::isalnum(static_cast<unsigned char>(text_[at_])) != 0 || text_[at_] == '_')) {
         ++at_;
      }
      String name = text_.substr(begin, at_ - begin);
      need(!name.empty() && std::isdigit(static_cast<unsigned char>(name[0])) == 0, "a name was expected");
      return name;
   }
   String quoted() {
      need(take("\""), "a quote was expected");
      String value;
      while (!take("\"")) {
         need(at_ < text_.size(), "the quote is not closed");
         if (take("\\")) {
            need(text_.find_first_of("\\\"n", at_) == at_, "no such escape");
            value += text_[at_] == 'n' ? '\n' : text_[at_];
         } else {
            value += text_[at_];
         }
         ++at_;
      }
      return value;
   }
   String rest() { return text_.substr(std::exchange(at_, text_.size())); }

 private:
   const String& text_;
   std::size_t at_ = 0;
};

class Reader {
 public:
   explicit Reader(ZelMetrics::Format format) : isOpenMetrics_(format == ZelMetrics::Format::openMetrics) {}

   void read(const String& text) {
      Line line(text);
      line.need(!isOver_, "something follows the end");
      if (text == "# EOF") {
         line.need(isOpenMetrics_, "only OpenMetrics has an end");
         isOver_ = true;
      } else if (line.take("# ")) {
         readMetadata(line);
      } else {
         readSample(line);
      }
   }
   ReadScrape finish() {
      if (isOver_ != isOpenMetrics_) {
         throw std::runtime_error("the end is missing");
      }
      return std::move(scrape_);
   }

 private:
   void readMetadata(Line& line) {
      const String what = line.name();
      line.need(line.take(" "), "a blank was expected");
      const String name = line.name();
      line.need(line.take(" "), "a blank was expected");
      if (name != current_) {
         line.need(!scrape_.families.contains(name), "a family comes twice");
         current_ = name;
         hasSamples_ = false;
      }
      line.need(!hasSamples_, "metadata behind samples");
      ReadFamily& family = scrape_.families[name];
      String& field = what == "HELP" ? family.help : what == "TYPE" ? family.type : family.unit;
      line.need(field.empty() && (what == "HELP" || what == "TYPE" || (what == "UNIT" && isOpenMetrics_)),
                "no such metadata here");
      field = line.rest();
      line.need(!field.empty(), "empty metadata");
      line.need(what != "UNIT" || name.ends_with("_" + field), "a name ends in its unit");
   }
   void readSample(Line& line) {
      const String name = line.name();
      Labels labels;
      if (line.take("{")) {
         do {
            const String label = line.name();
            line.need(line.take("="), "'=' was expected");
            line.need(labels.emplace(label, line.quoted()).second, "a label comes twice");
         } while (line.take(","));
         line.need(line.take("}"), "a closing brace was expected");
      }
      line.need(line.take(" "), "a blank was expected");
      const String value = line.rest();
      line.need(std::regex_match(value, std::regex("[0-9]+(\\.[0-9]+)?")), "no number");
      hasSamples_ = true;
      checkName(line, name, labels, value);
      line.need(scrape_.samples.emplace(std::pair(name, labels), value).second, "a sample comes twice");
   }
   void checkName(const Line& line, const String& name, const Labels& labels, const String& value) {
      const ReadFamily& family = scrape_.families[current_];
      line.need(!family.help.empty() && !family.type.empty(), "samples before HELP and TYPE");
      const bool isCreated = isOpenMetrics_ && family.type == "counter" && name == current_ + "_created";
      // A counter's time follows its value at once, for the same labels.
      line.need(!isCreated || counted_ == std::optional(labels), "a time without its counter");
      counted_.reset();
      if (isCreated) {
         return;
      }
      if (family.type == "counter") {
         line.need(value.find('.') == String::npos && name.ends_with("_total"), "no counter");
         counted_ = isOpenMetrics_ ? std::optional(labels) : std::nullopt;
      } else if (family.type == "info") {
         line.need(value == "1" && family.unit.empty(), "no info");
      } else if (family.type == "stateset") {
         line.need(labels.contains(current_) && (value == "0" || value == "1"), "no state");
      } else if (family.type == "histogram") {
         line.need(name == current_ + (labels.contains("le")    ? "_bucket"
                                       : name.ends_with("_sum") ? "_sum"
                                                                : "_count"),
                   "no part of a histogram");
         return;
      } else {
         line.need(family.type == "gauge", "no such type");
      }
      const String suffix = !isOpenMetrics_            ? ""
                            : family.type == "counter" ? "_total"
                            : family.type == "info"    ? "_info"
                                                       : "";
      line.need(name == current_ + suffix, "a sample of another family");
   }

   const bool isOpenMetrics_;
   ReadScrape scrape_;
   String current_; // family
   bool hasSamples_ = false;
   std::optional<Labels> counted_; // by the last line, if that was a counter
   bool isOver_ = false;
};

} // namespace

ReadScrape readScrape(ZelMetrics::Format format, const String& text) {
   Reader reader(format);
   std::size_t begin = 0;
   while (begin < text.size()) {
      const std::size_t end = text.find('\n', begin);
      if (end == String::npos) {
         throw std::runtime_error("the last line has no end: " + text.substr(begin));
      }
      reader.read(text.substr(begin, end - begin));
      begin = end + 1;
   }
   return reader.finish();
}

} // namespace ZelTest
