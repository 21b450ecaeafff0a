// The ends of commands: signals, children, the prompt at a terminal, limits of errors, progress.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <nlohmann/json.hpp>
#include <thread>

#include "CaptureTestSupport.h"
#include "agent/check/CheckCommand.h"
#include "agent/process/Child.h"
#include "agent/process/Signals.h"
#include "agent/report/ErrorOutput.h"
#include "agent/report/ExitCode.h"
#include "agent/report/Progress.h"
#include "agent/soak/SoakCommand.h"

namespace Agent {
namespace {

// The note of a signal outlives the command, so that it would interrupt the tests that follow.
struct ForgetsSignals final : testing::EmptyTestEventListener {
   void OnTestEnd(testing::TestInfo const&) override { Signals const unnoted; }
};
[[maybe_unused]] bool const forgetsSignals = [] {
   testing::UnitTest::GetInstance()->listeners().Append(new ForgetsSignals);
   return true;
}();

struct Pipe {
   Pipe() { EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0); }
   ~Pipe() {
      for (int const end : ends)
         ::close(end);
   }
   // A byte; 0 at the end; -1 if neither comes.
   int read() const {
      constexpr int guard = 60'000;  // milliseconds
      pollfd waits{ends[0], POLLIN, 0};
      char byte = 0;
      if (::poll(&waits, 1, guard) != 1) return -1;
      return ::read(ends[0], &byte, 1) == 1 ? byte : 0;
   }
   void write(char byte) const { EXPECT_EQ(::write(ends[1], &byte, 1), 1); }
   void endWriting() {
      ::close(ends[1]);
      ends[1] = -1;
   }

   std::array<int, 2> ends{};
};

// A child that has begun, ignores the signals of a terminal and would never end.
int lasting(Pipe const& begun) {
   for (int const number : Signals::numbers)
      ::raise(number);
   begun.write('x');
   while (true)
      ::pause();
}

TEST(Child, EndsWithItsParentWhetherThatIsKilledOrInterrupted) {
   for (int const number : {SIGKILL, SIGTERM}) {
      Pipe begun;
      pid_t const parent = ::fork();
      if (parent == 0) {
         Child child([&] { return lasting(begun); });
         child.wait();
         ::_exit(0);
      }
      begun.endWriting();
      ASSERT_EQ(begun.read(), 'x');
      ::kill(parent, number);
      EXPECT_EQ(begun.read(), 0);  // all processes with the write end have ended
      ::waitpid(parent, nullptr, 0);
   }
   Pipe begun;
   Signals const signals;
   Child child([&] { return lasting(begun); });
   begun.endWriting();
   ASSERT_EQ(begun.read(), 'x');
   ::raise(SIGINT);
   EXPECT_EQ(child.wait(), std::nullopt);
   EXPECT_EQ(begun.read(), 0);
   EXPECT_EQ(interruptName(), "INT");
   forgetInterrupt();
   EXPECT_FALSE(interrupted());
   Child good([] { return 7; });
   EXPECT_EQ(WEXITSTATUS(good.wait().value()), 7);
}

TEST(Signals, TheSecondSignalEndsTheProcess) {
   for (int const second : Signals::numbers) {
      EXPECT_EXIT(
            {
               Signals const signals;
               ::raise(SIGTERM);
               EXPECT_TRUE(interrupted());
               ::raise(second);
            },
            testing::KilledBySignal(second), "");
   }
}

// The signal comes while the fourth episode of the first path is played or later.
TEST(SoakCommand, AnInterruptedSoakNamesTheRest) {
   Pipe made;
   SoakOptions options;
   options.operations = 200'000;
   options.format = true;
   options.platforms = [&](PathKind path, VelMroute::PlatformOptions settings) {
      made.write('x');
      return simulatedPlatform(path, std::move(settings));
   };
   std::thread interrupter([&] {
      for (int i = 0; i < 2 + 4; ++i)  // two to learn the abilities
         made.read();
      ::kill(::getpid(), SIGTERM);
   });
   testing::internal::CaptureStdout();
   EXPECT_EQ(runSoak(options), exitInterrupted);
   interrupter.join();
   auto const summary = nlohmann::json::parse(testing::internal::GetCapturedStdout());
   EXPECT_EQ(summary["signal"], "TERM");
   EXPECT_EQ(summary["found"].size(), 0u);
   auto const& rest = summary["resume"];
   ASSERT_EQ(rest.size(), 2u);
   EXPECT_EQ(rest[0]["seed"], 1 + summary["episodes"].get<int>());
   EXPECT_EQ(rest[0]["operations"], 200'000 - summary["operations"].get<int>());
   EXPECT_LT(rest[0]["operations"], 200'000 - 4000);
   EXPECT_EQ(rest[1], (nlohmann::json{{"path", "sync"}, {"seed", 1}, {"operations", 200'000}}));
}

TEST(CheckCommand, AnInterruptLeavesOutTheRemainingChecks) {
   CheckOptions options;
   options.tap = true;
   int lives = 0;
   options.platform.source = [&](PathKind path, VelMroute::PlatformOptions settings) {
      PlatformChoice choice = simulatedPlatform(path, std::move(settings));
      choice.make = [&lives, make = choice.make] {
         if (++lives == 5) ::raise(SIGHUP);
         return make();
      };
      return choice;
   };
   testing::internal::CaptureStdout();
   EXPECT_EQ(runCheck(options), exitInterrupted);
   std::string const out = testing::internal::GetCapturedStdout();
   EXPECT_LE(lives, 6);
   EXPECT_NE(out.find("SKIP interrupted"), std::string::npos) << out;
   EXPECT_TRUE(out.ends_with("\nBail out! interrupted by HUP\n")) << out;
}

// The program at a terminal.
class Terminal {
 public:
   explicit Terminal(std::vector<std::string> const& arguments) {
      pid_ = ::forkpty(&fd_, nullptr, nullptr, nullptr);
      if (pid_ != 0) return;
      std::vector<char*> argv{const_cast<char*>("velmroute")};
      for (std::string const& argument : arguments)
         argv.push_back(const_cast<char*>(argument.c_str()));
      argv.push_back(nullptr);
      ::setenv("TERM", "dumb", 1);
      ::execv(VELMROUTE_PROGRAM, argv.data());
      ::_exit(127);
   }
   ~Terminal() {
      if (pid_ > 0) {
         ::kill(pid_, SIGKILL);
         ::waitpid(pid_, nullptr, 0);
      }
      ::close(fd_);
   }
   Terminal(Terminal const&) = delete;
   Terminal& operator=(Terminal const&) = delete;

   void type(std::string_view text) const {
      EXPECT_EQ(::write(fd_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
   }
   void signal(int number) const { ::kill(pid_, number); }
   // Reads up to and including this text.
   void expect(std::string const& text) {
      while (unread_.find(text) == std::string::npos)
         ASSERT_GT(read(), 0) << "no \"" << text << "\" in: " << unread_;
      unread_.erase(0, unread_.find(text) + text.size());
   }
   // -SIGKILL if the program does not end.
   int exitCode() {
      ssize_t size = 0;
      do
         size = read();
      while (size > 0);
      if (size == 0) ::kill(pid_, SIGKILL);
      int status = -1;
      ::waitpid(pid_, &status, 0);
      pid_ = 0;
      return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
   }

 private:
   // Returns 0 if nothing comes for a minute, and -1 when the program has closed the terminal.
   ssize_t read() {
      constexpr int guard = 60'000;  // milliseconds
      pollfd waits{fd_, POLLIN, 0};
      char bytes[4096];
      if (::poll(&waits, 1, guard) != 1) return 0;
      ssize_t const size = ::read(fd_, bytes, sizeof bytes);
      if (size > 0) unread_.append(bytes, static_cast<std::size_t>(size));
      return size;
   }

   pid_t pid_ = 0;
   int fd_ = -1;
   std::string unread_;
};

TEST(Prompt, CtrlCCancelsTheLineOrTheCommandAndOtherSignalsEndTheProgram) {
   TempDir const dir;
   std::string const file = dir.file("scenario", R"({"config": {"activityPollingInterval": 1}}
{"route": {"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "rtr0", "oifs": ["rtr1"]}}
{"at": 1, "traffic": {"src": "10.0.0.2", "dst": "239.1.1.1", "iif": "rtr0", "count": 1900000, "every": 0.5}})");
   for (bool const signalled : {false, true}) {
      Terminal terminal({"run", "--until", "1", "--inspect", file});
      terminal.expect("1.000 s> ");
      terminal.type("ls /sw\x03");
      terminal.expect("^C");
      terminal.expect("1.000 s> ");
      terminal.type(
            "watch /hwStatus/vrfStatus/default/route/\"(10.0.0.2, 239.1.1.1)\"/lastPollTime\n");
      terminal.expect("1.000 s> ");
      terminal.type("run 1e9\n");
      terminal.expect("lastPollTime = ");  // the command is under way
      terminal.type("\x03");
      terminal.expect("interrupted by INT at ");
      terminal.expect(" s> ");
      if (signalled) {
         terminal.signal(SIGTERM);
         terminal.expect("interrupted by TERM at ");
      } else {
         terminal.type("\x04");
      }
      EXPECT_EQ(terminal.exitCode(), signalled ? exitInterrupted : exitDone);
   }
}

TEST(ErrorOutput, TenErrorsOfAKindArePrintedAndTheOthersCounted) {
   std::pair<char const*, char const*> const kinds[] = {
         {"unknown word \"Foo\" where \"a\" is (column 7)",
          "unknown word \"...\" where \"...\" is"},
         {"no vlan is left for leaf4094: all 4093", "no vlan is left for leafN: all N"},
         {"10.0.0.1 has a \"", "N.N.N.N has a \""}};
   for (auto const& [text, kind] : kinds)
      EXPECT_EQ(ErrorLimit::kindOf(text), kind);
   testing::internal::CaptureStderr();
   {
      ErrorLimit errors;
      for (unsigned i = 0; i < 2 * ErrorLimit::kinds; ++i)
         errors.print("kind " + std::to_string(i), "one");
      for (unsigned i = 0; i < 12; ++i)
         errors.print("kind 3", "more");
   }
   std::string const printed = testing::internal::GetCapturedStderr();
   auto const count = [&](std::string const& part) {
      std::size_t found = 0;
      for (auto at = printed.find(part); at != std::string::npos; at = printed.find(part, at + 1))
         ++found;
      return found;
   };
   EXPECT_EQ(count("velmroute: one\n"), ErrorLimit::kinds + ErrorLimit::most);
   EXPECT_EQ(count("velmroute: more\n"), ErrorLimit::most - 1);
   EXPECT_EQ(count("velmroute: and 3 more errors of this kind: kind 3\n"), 1u);
   EXPECT_EQ(count("velmroute: and 40 more errors of this kind: another kind\n"), 1u);
}

TEST(Progress, TheLineHasTheShareAndAnEstimate) {
   struct Case {
      std::uint64_t done, total;
      double seconds;
      char const* text;
   };
   Case const cases[] = {
         {0, 100'000, 5, "0 of 100,000 units (0 %)"},
         {12'300, 100'000, 6.3, "12,300 of 100,000 units (12 %), 45 s left"},
         {999, 1000, 0.9, "999 of 1,000 units (99 %)"},
         {1, 1000, 1, "1 of 1,000 units (0 %), 17 min left"},
         {1'000'000, 1'000'000, 60, "1,000,000 of 1,000,000 units (100 %), 0 s left"},
         {1, 100'000, 1, "1 of 100,000 units (0 %), 28 h left"},
   };
   for (Case const& c : cases)
      EXPECT_EQ(Progress::shareText(c.done, c.total, "units", c.seconds), c.text);
}

}  // namespace
}  // namespace Agent
