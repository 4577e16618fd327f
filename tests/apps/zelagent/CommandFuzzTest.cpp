// Whatever the command line, the agent answers with text or one line of error, and goes on. Lines follow the grammar,
// which the test learns from the agent's refusals, or are mutations of such lines, or random bytes. Meanwhile traffic
// runs, and chips and ports come and go.
//
// ZEL_FUZZ_LINES sets the number of lines; ZEL_TEST_SEED repeats a run.
#include "agent/CommandChannel.h"
#include "agent/CommandSocket.h"
#include "kiln/Utf8.h"
#include "tests/apps/zelagent/AgentRig.h"
#include "tests/support/Random.h"
#include "tests/support/SocketClient.h"
#include "tests/support/TemporaryFolder.h"

#include <cstring>
#include <thread>

namespace {

using Kiln::String;
using Words = std::vector<String>;

String joined(const Words& words) {
   String line;
   for (const String& word : words) {
      line += (line.empty() ? "" : " ") + word;
   }
   return line;
}

// Operands of a sentence.
const String anIntf = "<interface>";
const String aPipe = "<pipe>";
const String aTable = "<table>";
const String aNumber = "<number>";

String operandAfter(const String& keyword) {
   return keyword == "intf" || keyword == "interface" ? anIntf
          : keyword == "pipe"                         ? aPipe
          : keyword == "table"                        ? aTable
          : keyword == "top"                          ? aNumber
                                                      : "";
}

// The sentences that the grammar allows after "counters", with placeholders for operands.
class Grammar {
 public:
   // `refusalOf` returns the error that a line gets.
   template <class RefusalOf>
   explicit Grammar(RefusalOf refusalOf) {
      explore({}, refusalOf);
   }

   const std::vector<Words>& sentences() const { return sentences_; }

 private:
   static constexpr const char* noWord = "!";

   // The words that the agent, refusing a line, says it expected.
   static Words choicesOf(const String& refusal) {
      const String before = "expected ";
      const std::size_t at = refusal.rfind(before);
      EXPECT_NE(at, String::npos) << refusal;
      Words choices;
      std::size_t begin = at + before.size();
      while (begin < refusal.size()) {
         std::size_t end = refusal.find(", ", begin);
         std::size_t next = end + 2;
         if (end == String::npos) {
            end = std::min(refusal.find(" or ", begin), refusal.size());
            next = end + 4;
         }
         choices.push_back(refusal.substr(begin, end - begin));
         begin = next;
      }
      return choices;
   }

   template <class RefusalOf>
   void explore(const Words& sentence, RefusalOf refusalOf) {
      Words probe = {"counters"};
      for (const String& word : sentence) {
         probe.push_back(word[0] == '<' ? "1" : word);
      }
      probe.emplace_back(noWord);
      for (const String& choice : choicesOf(refusalOf(joined(probe)))) {
         if (choice == "nothing more") {
            sentences_.push_back(sentence);
         } else if (choice != "chip") { // may precede any sentence, so it is added separately
            Words longer = sentence;
            longer.push_back(choice);
            if (const String operand = operandAfter(choice); !operand.empty()) {
               longer.push_back(operand);
            }
            explore(longer, refusalOf);
         }
      }
   }

   std::vector<Words> sentences_;
};

class CommandFuzz : public ZelTest::AgentRig {
 protected:
   CommandFuzz() {
      start({.chips = 2, .pipes = 2, .ports = 4});
      agent_->traffic().onIs(true);
      advance(4.0);
   }

   String randomBytes(U64 atMost) {
      String text(random_.below(atMost + 1), '\0');
      for (char& c : text) {
         c = random_.byte();
      }
      return text;
   }

   // Keywords in full or shortened; names that exist, or did.
   String spell(const Words& sentence) {
      Words words = {"counters"};
      if (random_.oneIn(4)) {
         words.insert(words.end(), {"chip", "Zel" + std::to_string(random_.below(3))});
      }
      const bool isShort = random_.oneIn(4);
      for (const String& word : sentence) {
         if (word == anIntf) {
            words.push_back("Ethernet" + std::to_string(1 + random_.below(9)));
         } else if (word == aPipe) {
            words.push_back(std::to_string(random_.below(3)));
         } else if (word == aNumber) {
            words.push_back(std::to_string(random_.below(20)));
         } else if (word == aTable) {
            static const Words tables = {"0", "7", "ingressPortCount", "vlanByteCount", "egr", "pdp"};
            if (!random_.oneIn(100)) { // otherwise all tables
               words.push_back(random_.oneOf(tables));
            }
         } else {
            words.push_back(isShort ? word.substr(0, 1 + random_.below(word.size())) : word);
         }
      }
      return joined(words);
   }

   String mutated(String line) {
      static const Words oddWords = {
           "-1", "4294967296", "18446744073709551616", "0x10", "\x1b[2J", "%n%s", "chip", "counters",
           "",   "\xff\xfe"};
      if (random_.oneIn(10)) { // a completion, as a prompt asks for it
         line = "complete " + line.substr(0, random_.below(line.size() + 1));
      }
      for (U64 changes = 1 + random_.below(4); changes > 0; --changes) {
         const std::size_t at = random_.below(line.size() + 1);
         switch (random_.below(6)) {
         case 0:
            line.insert(at, 1, random_.byte());
            break;
         case 1:
            line.erase(at, 1 + random_.below(4));
            break;
         case 2:
            line.insert(at, " " + random_.oneOf(oddWords) + " ");
            break;
         case 3:
            line.insert(at, line.substr(0, random_.below(line.size() + 1)));
            break;
         case 4:
            line.insert(at, random_.below(300), 'x');
            break;
         default:
            if (at < line.size()) {
               line[at] = static_cast<char>(static_cast<unsigned char>(line[at]) ^ (1U << random_.below(8)));
            }
         }
      }
      return line;
   }

   // Adds or takes away chips and ports, and lets time pass.
   void disturb() {
      const auto lock = Kiln::ActivityLockAnchor::lock();
      const U64 number = random_.below(8);
      const String chip = number < 4 ? "Zel0" : "Zel1";
      const Pelt::IntfId intf(Kiln::Name("Ethernet" + std::to_string(1 + number)));
      const auto devicePort = static_cast<U16>(random_.below(2 * ZlPort::slotsPerPipe));
      try {
         switch (random_.below(6)) {
         case 0:
            agent_->chipDel(chip);
            break;
         case 1:
            agent_->chipAdd(chip);
            break;
         case 2:
            agent_->portDel(intf);
            break;
         case 3:
            agent_->portAdd(intf, chip, devicePort);
            break;
         default:
            advance(0.5 * static_cast<double>(1 + random_.below(5)));
         }
      } catch (const std::invalid_argument&) {
         // refused: the chip or port is not there, or the place is taken
      }
   }

   void expectAPlainAnswer() {
      {
         const auto lock = Kiln::ActivityLockAnchor::lock();
         agent_->chipAdd("Zel0"); // with its ports
      }
      advance(4.0);
      const ZelTest::Asked asked = run("counters show mac intf Ethernet1");
      EXPECT_EQ(asked.text.substr(0, 20), "Intf Ethernet1 (0):\n");
      EXPECT_EQ(asked.error, "");
   }

   const U64 lines_ = ZelTest::numberFromEnvironment("ZEL_FUZZ_LINES", 20000);
   ZelTest::Random random_;
};

// Such a line shows everything of a chip, which takes a thousand times as long as a short line.
bool isLong(const Words& sentence) {
   return sentence.size() == 1 || sentence[1] == "nonzero" || sentence[1] == "json";
}

TEST_F(CommandFuzz, AnswersWhateverTheLineIs) {
   const Grammar grammar([this](const String& line) { return run(line).error; });
   const auto has = [&](const Words& sentence) {
      const auto& all = grammar.sentences();
      return std::find(all.begin(), all.end(), sentence) != all.end();
   };
   EXPECT_TRUE(has({"show"}));
   EXPECT_TRUE(has({"show", "mac", "intf", anIntf, "nonzero"}));
   EXPECT_TRUE(has({"clear", "table", aTable, "pipe", aPipe}));
   U64 answered = 0;
   for (U64 i = 0; i < lines_ && !HasFailure(); ++i) {
      if (random_.oneIn(500)) {
         disturb();
      }
      const Words* sentence = &random_.oneOf(grammar.sentences());
      while (isLong(*sentence) && !random_.oneIn(100)) {
         sentence = &random_.oneOf(grammar.sentences());
      }
      const U64 kind = random_.below(8);
      const bool isWhole = kind < 2;
      const String line = kind == 7 ? randomBytes(random_.oneIn(20) ? 10000 : 60)
                          : isWhole ? spell(*sentence)
                                    : mutated(spell(*sentence));
      const ZelTest::Asked asked = run(line);
      answered += asked.error.empty() ? 1U : 0U;
      // A refusal is one short line of printable text, and comes before any output.
      EXPECT_LT(asked.error.size(), 1000U) << line;
      EXPECT_EQ(Kiln::printable(asked.error), asked.error) << line;
      EXPECT_TRUE(asked.error.empty() || asked.text.empty()) << line;
      EXPECT_EQ(asked.text.find('\0'), String::npos) << line;
      // The agent takes what it offered: at most, a name no longer exists or a shortened keyword is ambiguous.
      EXPECT_FALSE(isWhole && asked.error.starts_with("unexpected")) << line << ": " << asked.error;
      EXPECT_FALSE(isWhole && asked.error.starts_with("the command is incomplete"))
           << line << ": " << asked.error;
   }
   EXPECT_GT(answered, lines_ / 20) << "most lines are nonsense, but not nearly all";
   expectAPlainAnswer();
}

// A client that misbehaves.
class HostileClient : public ZelTest::SocketClient {
 public:
   using SocketClient::SocketClient;

   // Sends as much as the agent takes; it may close at any time.
   void send(const String& bytes) const {
      ::send(fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
   }
   // Reads the beginning of the answer, which may be empty.
   String receive() const {
      String bytes(100, '\0');
      const ssize_t got = recv(fd(), bytes.data(), bytes.size(), MSG_WAITALL);
      EXPECT_TRUE(got >= 0 || errno == ECONNRESET) << std::strerror(errno);
      bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
      return bytes;
   }
};

// Half lines, long lines, NULs, clears in any disguise; clients that read nothing, or leave, and more of them than are
// served at once.
class HostileClients : public CommandFuzz {
 protected:
   HostileClients() {
      const auto runner = agent_->commandRunner();
      channel_ = Kiln::allocate<Agent::CommandChannel>(manager_, runner, path_);
      readers_ =
           Kiln::allocate<Agent::CommandChannel>(manager_, runner, readPath_, Agent::CommandChannelLimits{},
                                                 Agent::CommandReaders{getgid(), path_});
      loop_ = std::thread([this] { manager_->run(); });
   }
   ~HostileClients() override {
      manager_->stop();
      loop_.join();
   }

   String hostileBytes() {
      static const Words starts = {"zel/2 counters show mac", "zel/2 counters show table",
                                   "zel/2 counters show mac intf Ethernet1 nonzero", "counters show drop",
                                   "zel/"};
      static const std::vector<Words> clears = {
           {"clear"},         {"clear", "mac"}, {"clear", "mac", "intf", anIntf},
           {"clear", "drop"}, {"clear", "pdp"}, {"clear", "table", aTable}};
      if (random_.oneIn(2)) {
         const String clear = spell(random_.oneOf(clears));
         return "zel/2 " + (random_.oneIn(4) ? clear : mutated(clear)) + "\n";
      }
      String bytes = random_.oneIn(2) ? random_.oneOf(starts) : "";
      if (!random_.oneIn(4)) {
         bytes += randomBytes(random_.oneIn(4) ? 3 * Agent::commandLineLimit : 100);
      }
      return bytes + (random_.oneIn(2) ? "\n" : "");
   }

   void attack(const String& path) {
      std::vector<std::unique_ptr<HostileClient>> open;
      for (U64 round = 0; round < lines_ / 40; ++round) {
         if (open.size() > 20) { // more than the agent serves at once
            open.clear();
         }
         const auto& client = open.emplace_back(std::make_unique<HostileClient>(path));
         const String bytes = hostileBytes();
         const std::size_t half = random_.below(bytes.size() + 1);
         client->send(bytes.substr(0, half));
         client->send(bytes.substr(half));
         if (random_.oneIn(2)) {
            client->endSending();
            client->receive(); // an answer comes, whatever was sent
         }
         if (random_.oneIn(2)) {
            open.pop_back();
         }
      }
      open.clear();
      String answer;
      do { // until the agent has noticed which clients left
         const HostileClient plain(path);
         plain.send("zel/2 counters show mac intf Ethernet1\n");
         answer = plain.receive();
      } while (answer.find("too many clients at once") != String::npos);
      EXPECT_EQ(answer.substr(0, 26), "zel/2\nIntf Ethernet1 (0):\n");
   }

   // Who has cleared something.
   bool isCleared() { return run("counters show json").text.find("\"cleared-by\":\"") != String::npos; }

   const ZelTest::TemporaryFolder folder_;
   const String path_ = folder_.path() + "/socket";
   const String readPath_ = folder_.path() + "/read-socket";
   const Kiln::Ptr<Kiln::ActivityManager> manager_ = Kiln::ActivityManager::instance();
   Kiln::Ptr<Agent::CommandChannel> channel_;
   Kiln::Ptr<Agent::CommandChannel> readers_;
   std::thread loop_;
};

TEST_F(HostileClients, ChangeNothingOnTheSocketForReaders) {
   attack(readPath_);
   EXPECT_FALSE(isCleared());
}

TEST_F(HostileClients, AreSurvivedOnTheAgentsOwnSocket) {
   attack(path_);
   EXPECT_TRUE(isCleared()) << "some of what they send are clears";
}

} // namespace
