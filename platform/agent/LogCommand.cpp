// The logs as lines of text and as one JSON document.
#include "agent/LogCommand.h"

#include "kiln/Choices.h"
#include "kiln/JsonWriter.h"
#include "kiln/RingLog.h"
#include "kiln/TextOutput.h"
#include "kiln/Time.h"
#include "kiln/Utf8.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace Agent {

namespace {

constexpr std::string_view jsonKeyword = "json";

// A time of Kiln::System::currentTime() as a date. Log entries have that time, which says nothing to people.
Kiln::String dateText(double time) {
   const double milliseconds =
        std::max(0.0, std::floor((Kiln::System::unixTime() - Kiln::System::currentTime() + time) * 1e3));
   const auto seconds = static_cast<std::time_t>(milliseconds / 1e3);
   std::tm parts{};
   localtime_r(&seconds, &parts);
   char date[64];
   char text[96];
   std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", &parts);
   std::snprintf(text, sizeof text, "%s.%03u", date, static_cast<unsigned>(std::fmod(milliseconds, 1e3)));
   return text;
}

// One line of a log. A line of the ring log has no message of the catalogue.
struct Line {
   double time;
   const Kiln::LogMessage* message;
   Kiln::String text;
};

std::vector<Line> linesOf(LogCommand::Log log) {
   std::vector<Line> lines;
   if (log == LogCommand::Log::operatorLog) {
      for (const Kiln::OperatorLog::Entry& entry : Kiln::OperatorLog::instance().entries()) {
         lines.push_back({entry.time, entry.message, entry.text});
      }
   } else {
      for (const Kiln::RingLog::Entry& entry : Kiln::RingLog::instance().entries()) {
         lines.push_back({entry.time, nullptr, entry.text});
      }
   }
   return lines;
}

void writeText(const std::vector<Line>& lines, int fd) {
   Kiln::TextOutput out(fd);
   if (lines.empty()) {
      out.write("The log is empty since the agent came up\n");
   }
   for (const Line& line : lines) {
      const Kiln::String text =
           line.message != nullptr ? logText({line.time, line.message, line.text}) : line.text;
      out.write(dateText(line.time) + " " + Kiln::printable(text) + "\n");
   }
}

void writeJson(const std::vector<Line>& lines, int fd) {
   const double now = Kiln::System::currentTime();
   Kiln::JsonWriter json(Kiln::JsonWriter::Style::compact);
   json.begin("", '{');
   json.begin("log", '[');
   for (const Line& line : lines) {
      json.newLine();
      json.begin("", '{');
      json.value("time", dateText(line.time));
      json.value("age-ms", static_cast<U64>(std::max(0.0, (now - line.time) * 1e3)));
      if (line.message != nullptr) {
         json.value("id", std::string_view(line.message->id));
         json.value("severity", std::string_view(Kiln::severityText(line.message->severity)));
      }
      json.value("text", line.text);
      if (line.message != nullptr) {
         json.value("explanation", std::string_view(line.message->explanation));
         json.value("recommended-action", std::string_view(line.message->recommendedAction));
      }
      json.end('}');
   }
   json.end(']');
   json.end('}');
   Kiln::TextOutput(fd).write(json.text());
}

} // namespace

Kiln::String logText(const Kiln::OperatorLog::Entry& entry) {
   return Kiln::String(entry.message->id) + " (" + Kiln::severityText(entry.message->severity) +
          "): " + entry.text;
}

CommandResult LogCommand::command(const std::vector<Kiln::String>& words, int fd) {
   const bool isJson = !words.empty() && jsonKeyword.starts_with(words.front());
   const std::size_t taken = isJson ? 1 : 0;
   if (words.size() > taken) {
      return {"unexpected " + Kiln::quoted(words[taken]) + ": expected " + (isJson ? "nothing" : "json") +
              " after the name of the log"};
   }
   const std::vector<Line> lines = linesOf(log_);
   (isJson ? writeJson : writeText)(lines, fd);
   return {};
}

std::vector<Kiln::String> LogCommand::completions(const std::vector<Kiln::String>& words) const {
   return words.empty() ? std::vector<Kiln::String>{Kiln::String(jsonKeyword)} : std::vector<Kiln::String>();
}

} // namespace Agent
