// The editor at the terminal, its history and its completion.
#include "apps/zelctl/prompt/Prompt.h"

#include "agent/CommandRunner.h"
#include "apps/zelctl/CommandWords.h"
#include "apps/zelctl/prompt/Completion.h"
#include "apps/zelctl/prompt/LineEditor.h"
#include "apps/zelctl/terminal/Terminal.h"

#include <cerrno>
#include <csignal>
#include <iostream>
#include <optional>
#include <unistd.h>

namespace ZelCtl {

namespace {

using Kiln::String;
using Event = LineEditor::Event;

constexpr const char* greeting = "zelctl: 'help' lists the commands, 'quit' or Ctrl-D leaves";
const String prompt = "zel> ";

String trimmed(const String& line) {
   const std::size_t begin = line.find_first_not_of(" \t\r");
   return begin == String::npos ? "" : line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin);
}

bool leaves(const String& line) {
   const std::vector<String> words = Agent::splitWords(line);
   try {
      return words.size() == 1 && isLeaving(commandNamed(words.front()));
   } catch (const std::exception&) { // ambiguous
      return false;
   }
}

class Prompt {
 public:
   explicit Prompt(const Client& client)
        : client_(client), history_(History::defaultPath()), editor_(history_) {}

   int run() {
      put(String(greeting) + "; Tab completes\n");
      for (;;) {
         const std::optional<String> line = readLine();
         if (!line || leaves(*line)) {
            const int signal = signals_.ending();
            return signal != 0 ? 128 + signal : int(carriedOut);
         }
         if (!line->empty()) {
            history_.add(*line);
            runLine(client_, *line, &signals_);
            signals_.takeInterrupt();
         }
         editor_.clear();
      }
   }

 private:
   static void put(const String& text) { writeOut(text, nullptr); }
   void draw() { put(editor_.picture(prompt, terminalSize().width)); }

   // None when there are no more.
   std::optional<String> readLine() {
      keys_.emplace(KeyMode::Interrupts::areKeys);
      draw();
      std::optional<String> line;
      while (!line) {
         if (unread_.empty() && !readKeys()) {
            put("\n");
            break;
         }
         const char key = unread_.empty() ? '\0' : unread_.front();
         unread_.erase(0, 1);
         const Event event = editor_.take(key);
         if (event == Event::ended) {
            put("\n");
            break;
         }
         if (event == Event::entered) {
            draw();
            put("\n");
            line = trimmed(editor_.line());
         } else {
            handle(event);
         }
      }
      keys_.reset();
      return line;
   }

   // Waits for a key. False when none will come.
   bool readKeys() {
      while (unread_.empty()) {
         const Woken woken = waitFor(&signals_, true, -1);
         if (signals_.ending() != 0 || woken.readerGone) {
            return false;
         }
         if (signals_.takeInterrupt()) {
            handle(Event::abandoned);
         }
         if (signals_.takeResize()) {
            put("\x1b[J"); // what the terminal wrapped
            draw();
         }
         char keys[256];
         const ssize_t got = woken.byKeys ? read(STDIN_FILENO, keys, sizeof keys) : 0;
         if (woken.byKeys && (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN))) {
            return false;
         }
         unread_.append(keys, got > 0 ? static_cast<std::size_t>(got) : 0);
      }
      return true;
   }

   void handle(Event event) {
      switch (event) {
      case Event::refused:
         put("\a");
         break;
      case Event::abandoned:
         put("^C\n");
         editor_.clear();
         break;
      case Event::tab:
         complete();
         break;
      case Event::clearScreen:
         put("\x1b[H\x1b[2J");
         break;
      case Event::suspend:
         keys_.reset();
         raise(SIGTSTP);
         keys_.emplace(KeyMode::Interrupts::areKeys);
         break;
      case Event::none:
      case Event::changed:
      case Event::entered:
      case Event::ended:
         break;
      }
      // What is pasted is drawn once.
      if (unread_.empty() && event != Event::none) {
         draw();
      }
   }

   void complete() {
      const std::vector<String> candidates =
           completionsOf(client_, editor_.line().substr(0, editor_.cursor()));
      if (!editor_.complete(candidates)) {
         // A character, not a literal: before a temporary, g++ 12 at -O3 warns of an overlap that can't be.
         put(candidates.size() > 1 ? '\n' + inColumns(candidates) : "\a");
      }
   }

   // As many as fit half the screen.
   static String inColumns(const std::vector<String>& words) {
      const TerminalSize size = terminalSize();
      std::size_t widest = 0;
      for (const String& word : words) {
         widest = std::max(widest, word.size() + 2);
      }
      const std::size_t columns = std::max<std::size_t>(1, size.width / widest);
      const std::size_t fit = columns * std::max<std::size_t>(1, size.height / 2);
      String text;
      for (std::size_t i = 0; i < words.size() && i < fit; ++i) {
         const bool endsRow = (i + 1) % columns == 0 || i + 1 == words.size() || i + 1 == fit;
         text += words[i] + (endsRow ? "\n" : String(widest - words[i].size(), ' '));
      }
      return text + (words.size() > fit ? "and " + std::to_string(words.size() - fit) + " more\n" : "");
   }

   const Client& client_;
   Signals signals_;
   History history_;
   LineEditor editor_;
   std::optional<KeyMode> keys_;
   String unread_; // keys
};

int runPlainPrompt(const Client& client) {
   std::cout << greeting << '\n';
   for (String line; std::cout << prompt << std::flush && std::getline(std::cin, line);) {
      line = trimmed(line);
      if (leaves(line)) {
         return carriedOut;
      }
      if (!line.empty()) {
         runLine(client, line, nullptr);
      }
   }
   std::cout << '\n';
   return carriedOut;
}

} // namespace

int runPrompt(const Client& client) {
   return isScreen() ? Prompt(client).run() : runPlainPrompt(client);
}

} // namespace ZelCtl
