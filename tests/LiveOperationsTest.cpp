// The operational parts of a live agent over real sockets and pipes, in virtual time.
#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "TestSupport.h"
#include "agent/live/ControlSocket.h"
#include "agent/live/LiveLog.h"
#include "agent/live/MetricsServer.h"
#include "agent/live/ServiceNotice.h"
#include "agent/live/SignalSource.h"

namespace {

using namespace Agent;

using Strings = std::vector<std::string>;

bool contains(std::string_view text, std::string_view part) {
   return text.find(part) != std::string_view::npos;
}

sockaddr_un unixAddress(std::string const& path) {
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   path.copy(address.sun_path, sizeof address.sun_path - 1);
   return address;
}

sockaddr const* generic(void const* address) {
   return static_cast<sockaddr const*>(address);
}

// A connection to a unix socket that never blocks.
class Peer {
 public:
   explicit Peer(std::string const& path, std::string_view text = {})
         : fd_(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)) {
      sockaddr_un const address = unixAddress(path);
      connected_ = ::connect(fd_, generic(&address), sizeof address) == 0;
      send(text);
   }
   ~Peer() { end(); }
   Peer(Peer const&) = delete;
   Peer& operator=(Peer const&) = delete;

   bool connected() const { return connected_; }
   void end() { ::close(std::exchange(fd_, -1)); }
   // Returns the number of bytes that the socket has taken.
   std::size_t send(std::string_view text) const {
      ssize_t const sent = ::send(fd_, text.data(), text.size(), MSG_NOSIGNAL);
      return sent > 0 ? static_cast<std::size_t>(sent) : 0;
   }
   // All that has arrived so far, at most `most` bytes of it.
   std::string const& received(std::size_t most = SIZE_MAX) {
      std::array<char, 65536> bytes;
      while (most > 0) {
         ssize_t const size = ::recv(fd_, bytes.data(), std::min(bytes.size(), most), 0);
         if (size <= 0) {
            ended_ = size == 0 || errno == ECONNRESET;
            break;
         }
         most -= static_cast<std::size_t>(size);
         received_.append(bytes.data(), static_cast<std::size_t>(size));
      }
      return received_;
   }
   bool ended() {
      received();
      return ended_;
   }

 private:
   int fd_;
   bool connected_ = false;
   bool ended_ = false;
   std::string received_;
};

// A program that runs beside the loop, with its output.
class Program final : public EventSource {
 public:
   explicit Program(std::string const& command) : pipe_(popen(command.c_str(), "r")) {}
   int fd() const override { return fileno(pipe_); }
   void ready(bool, bool) override {
      std::array<char, 4096> bytes;
      ssize_t const size = ::read(fd(), bytes.data(), bytes.size());
      if (size > 0) {
         output.append(bytes.data(), static_cast<std::size_t>(size));
      } else {
         running = false;
         code = WEXITSTATUS(pclose(pipe_));
      }
   }

   std::string output;
   bool running = true;
   int code = -1;

 private:
   FILE* const pipe_;
};

class LiveOperations : public testSupport::OnVirtualTime {
 protected:
   LiveOperations() {
      std::string name = std::filesystem::temp_directory_path() / "velmroute-op-XXXXXX";
      directory_ = mkdtemp(name.data());
      path_ = directory_ + "/control.sock";
   }
   ~LiveOperations() override { std::filesystem::remove_all(directory_); }

   void turns(int count = 8) {
      for (int i = 0; i < count; ++i)
         loop_.turn(0);
   }
   void pass(Qor::Seconds seconds) {
      time_->advance(seconds);
      turns();
   }
   std::string inDirectory(char const* name) const { return directory_ + '/' + name; }

   std::string directory_, path_;
   EventLoop loop_;
};

class ControlSocketTest : public LiveOperations {
 protected:
   ControlSocketTest()
         : socket_(
                 path_, [this](ControlRequest const& request) { return answer(request); },
                 [this](ControlClientId client) { ended_.push_back(client); }) {
      loop_.add(socket_);
   }

   // The commands: "big N" answers with N bytes, "watch", "throw", "no", and others are repeated.
   ControlAnswer answer(ControlRequest const& request) {
      commands_.push_back(request.line);
      if (request.line.starts_with("big "))
         return {std::string(std::stoul(request.line.substr(4)), 'x')};
      if (request.line == "throw") throw std::runtime_error("thrown");
      if (request.line == "later") {
         awaiting_.push_back(request.client);
         return ControlAnswer::later();
      }
      if (request.line == "no") return ControlAnswer::failed("refused");
      if (request.line.starts_with("watch")) {
         watchers_.push_back(request.client);
         return {"begins\n", true, true};
      }
      if (request.format.json) return {"[\"" + request.line + "\"]\n"};
      std::string const width =
            request.format.width ? std::to_string(request.format.width) + ' ' : "";
      return {width + "text: " + request.line + '\n'};
   }
   std::string reply(std::string_view sent) {
      Peer peer(path_, sent);
      turns();
      std::string const received = peer.received();
      return peer.ended() ? received : received + " and stays";
   }

   std::vector<std::string> commands_;
   std::vector<ControlClientId> watchers_, awaiting_, ended_;
   ControlSocket socket_;
};

TEST_F(ControlSocketTest, AnswersOneLineAndEndsTheConnection) {
   std::string const longest(ControlSocket::longestLine, 'a');
   std::map<std::string, std::string> const cases = {
         {"show routes\n", "done 18\ntext: show routes\n"},
         {"-j show routes\r\n", "done 16\n[\"show routes\"]\n"},
         {"\n", "done 7\ntext: \n"},
         {"no\n", "failed 8\nrefused\n"},
         {"throw\n", "failed 7\nthrown\n"},
         {"big 3\n", "done 3\nxxx"},
         {"big 70000000\n",
          "failed 0\nthe answer is too long for the control socket: select less\n"},
         {"-w 40 show\n", "done 0\n40 text: show\n"},
         {"-w x show\n", "failed 0\n\"-w\" needs a number of columns\n"},
         {"show\nshow\n", "failed 33\na connection takes one command\n"},
         {std::string("sh\0w\n", 5), "failed 39\nthe command has control characters\n"},
         {"\x1b[31m", "failed 39\nthe command has control characters\n"},
   };
   for (auto const& [sent, expected] : cases) {
      std::string const text = expected.substr(expected.find('\n') + 1);
      std::string const word = expected.substr(0, expected.find(' '));
      EXPECT_EQ(reply(sent), fmt::format("{} {}\n{}", word, text.size(), text)) << sent;
   }
   // Parts of a line are put together, up to its longest length.
   Peer parts(path_, longest.substr(0, 40000));
   turns();
   parts.send(longest.substr(40000));
   turns();
   parts.send("\n");
   turns();
   EXPECT_EQ(parts.received().size(),
             fmt::format("done {}\n", longest.size() + 7).size() + longest.size() + 7);
   Peer endless(path_);
   for (std::size_t sent = 0; sent < 4 * longest.size() && !endless.ended();) {
      sent += endless.send(longest);
      turns();
   }
   EXPECT_EQ(endless.received(), "failed 24\nthe command is too long\n");
   EXPECT_EQ(socket_.clients(), 0u);
}

TEST_F(ControlSocketTest, AnswersLaterIfTheHandlerSaysSo) {
   Peer first(path_, "later\n");
   Peer second(path_, "later\n");
   Peer third(path_, "later\n");
   turns();
   second.end();
   turns();
   EXPECT_EQ(awaiting_.size(), 3u);
   EXPECT_TRUE(socket_.answerIs(awaiting_[0], {"now\n"}));
   EXPECT_FALSE(socket_.answerIs(awaiting_[0], {"twice\n"}));
   EXPECT_FALSE(socket_.answerIs(awaiting_[1], {"too late\n"}));
   EXPECT_EQ(first.received(), "done 4\nnow\n");
   EXPECT_TRUE(first.ended());
   pass(ControlSocket::answerTime);
   EXPECT_EQ(third.received(), "failed 28\nthe agent has no answer yet\n");
   EXPECT_FALSE(socket_.answerIs(awaiting_[2], {"too late\n"}));
}

TEST_F(ControlSocketTest, DropsSilentAndSlowClientsInTimeAndServesTheOthers) {
   Peer silent(path_);
   Peer half(path_, "show rou");
   Peer slow(path_, "big 8000000\n");
   Peer steady(path_, "big 8000000\n");
   Peer gone(path_, "big 8000000\n");
   turns();
   gone.end();
   steady.received();
   pass(ControlSocket::lineTime);
   EXPECT_EQ(reply("show\n"), "done 11\ntext: show\n");
   EXPECT_EQ(silent.received(), "failed 24\nno command came in time\n");
   EXPECT_TRUE(silent.ended() && half.ended());
   EXPECT_EQ(socket_.clients(), 2u);
   for (int i = 0; i < 200 && !steady.ended(); ++i)
      turns(1);
   EXPECT_EQ(steady.received().size(), std::string_view("done 8000000\n").size() + 8000000);
   slow.received(1000000);
   pass(ControlSocket::answerTime);
   EXPECT_EQ(socket_.clients(), 0u);
   EXPECT_TRUE(slow.ended());
   EXPECT_LT(slow.received().size(), 8000000u);
   EXPECT_EQ(socket_.refused(), 3u);
   EXPECT_EQ(time_->nextDeadline(), Qor::never);  // an idle socket sets no clock
}

TEST_F(ControlSocketTest, BoundsTheClientsAndWhatWaitsForThem) {
   std::vector<std::unique_ptr<Peer>> silent;
   for (int i = 0; i < 60; ++i) {
      silent.push_back(std::make_unique<Peer>(path_));
      turns(1);
      ASSERT_TRUE(silent.back()->connected()) << i;
      ASSERT_LE(socket_.clients(), ControlSocket::maxClients);
   }
   turns();
   EXPECT_EQ(reply("show\n"), "done 11\ntext: show\n");
   EXPECT_TRUE(contains(silent.front()->received(), "too many clients"))
         << silent.front()->received();
   // Clients that do not read share a bound, and hold their places until their time is over.
   std::vector<std::unique_ptr<Peer>> greedy;
   for (std::size_t i = 0; i < ControlSocket::maxClients; ++i) {
      greedy.push_back(std::make_unique<Peer>(path_, "big 16000000\n"));
      turns();
   }
   EXPECT_EQ(commands_.size(), 1 + ControlSocket::maxClients);
   EXPECT_TRUE(greedy[6]->received().starts_with("failed ")) << greedy[6]->received();
   EXPECT_TRUE(contains(greedy.back()->received(), "do not read")) << greedy.back()->received();
   EXPECT_EQ(reply("big 9000000\n").substr(0, 12), "done 9000000");  // for less than theirs
   pass(ControlSocket::answerTime);
   EXPECT_EQ(socket_.clients(), 0u);
   // All places are taken, by clients that watch and by clients that do not read.
   for (std::size_t i = 0; i < ControlSocket::maxClients; ++i) {
      greedy.push_back(std::make_unique<Peer>(path_, "watch\n"));
      turns();
   }
   EXPECT_EQ(socket_.clients(), ControlSocket::maxWatching);
   EXPECT_TRUE(contains(greedy.back()->received(), "too many clients watch"));
   EXPECT_EQ(ended_.size(), ControlSocket::maxClients - ControlSocket::maxWatching);
   for (std::size_t i = socket_.clients(); i < ControlSocket::maxClients; ++i)
      greedy.push_back(std::make_unique<Peer>(path_, "big 1000000\n"));
   turns();
   EXPECT_TRUE(contains(reply("show\n"), "too many clients are connected"));
   pass(ControlSocket::slowTime);
   EXPECT_EQ(reply("show\n"), "done 11\ntext: show\n");
   EXPECT_EQ(socket_.clients(), ControlSocket::maxClients - 1);
}

TEST_F(ControlSocketTest, PushesToWatchingClientsUntilTheyLeaveOrDoNotRead) {
   Peer reading(path_, "watch /a\n");
   Peer leaving(path_, "watch /b\n");
   Peer stuck(path_, "watch /c\n");
   Peer talking(path_, "watch /d\n");
   turns();
   ASSERT_EQ(watchers_.size(), 4u);
   EXPECT_EQ(reading.received(), "watching\nbegins\n");
   leaving.end();
   talking.send("more\n");
   turns();
   EXPECT_EQ(ended_, (std::vector{watchers_[1], watchers_[3]}));
   EXPECT_FALSE(socket_.push(watchers_[1], "late\n"));
   std::string const block(100000, 'x');
   std::size_t pushed = 0;
   while (socket_.push(watchers_[2], block))
      ++pushed;
   EXPECT_GE(pushed * block.size(), ControlSocket::maxOutput - block.size());
   EXPECT_LE(pushed * block.size(), ControlSocket::maxOutput + 1000000);
   EXPECT_TRUE(socket_.push(watchers_[0], "one\n"));
   EXPECT_TRUE(socket_.push(watchers_[0], "two\n"));
   pass(10 * ControlSocket::answerTime);  // a watching client may have nothing to read for long
   EXPECT_EQ(reading.received(), "watching\nbegins\none\ntwo\n");
   EXPECT_FALSE(reading.ended());
   EXPECT_EQ(ended_.size(), 3u);
   EXPECT_TRUE(socket_.push(watchers_[0], block + block + block + block));
   pass(ControlSocket::answerTime);
   EXPECT_EQ(ended_.size(), 4u);
}

TEST_F(ControlSocketTest, AnswersTheCommandsOfTheProgram) {
   struct Case {
      std::string command, path, output;
      int code;
   };
   std::string const missing = inDirectory("missing");
   std::string const program = VELMROUTE_PROGRAM " ";
   std::string const question = "explain 10.0.0.1,232.1.1.1 vrf red";
   for (Case const& one : {
              Case{program + "show", path_, "text: show routes\n", 0},
              {program + "show -j oifsets", path_, "[\"show oifsets\"]\n", 0},
              {program + "show -p routes vrf red", path_, "[\n  \"show routes vrf red\"\n]\n", 0},
              {program + question, path_, "text: " + question + '\n', 0},
              {program + "complete 'explain 10.0 '", path_, "text: complete explain 10.0 \n", 0},
              {program + "inspect no", path_, "text: inspect no\n", 0},
              {"printf '# none\\n\\n ls \\nquit\\nls /' | " + program + "inspect", path_,
               "text: inspect ls\n", 0},
              {program + "watch /a /b", path_,
               "begins\nvelmroute: " + path_ + ": the agent has ended the connection\n", 1},
              {program + "show", missing, "velmroute: " + missing + ": no agent listens there\n",
               1},
              {program + "show", "/dev/null", "velmroute: /dev/null: no agent listens there\n", 1},
        }) {
      SCOPED_TRACE(one.command);
      Program run("exec 2>&1; " + one.command + " --control " + one.path);
      loop_.add(run);
      while (run.running) {
         loop_.turn(10);
         if (!watchers_.empty()) {
            pass(0);
            socket_.push(watchers_.back(), std::string(ControlSocket::maxOutput + 1000, 'x'));
            watchers_.clear();
         }
      }
      loop_.remove(run);
      EXPECT_EQ(run.output, one.output);
      EXPECT_EQ(run.code, one.code);
   }
}

TEST_F(LiveOperations, TheFileOfADeadAgentIsReplacedAndOneOfALiveAgentIsAnError) {
   auto const openAt = [](std::string const& path) {
      return testSupport::errorText<std::runtime_error>([&] { Listener::unixSocket(path); });
   };
   int const dead = ::socket(AF_UNIX, SOCK_STREAM, 0);
   sockaddr_un const address = unixAddress(path_);
   ASSERT_EQ(::bind(dead, generic(&address), sizeof address), 0);
   ::close(dead);
   {
      auto const listener = Listener::unixSocket(path_);
      struct stat file {};
      ASSERT_EQ(::stat(path_.c_str(), &file), 0);
      EXPECT_EQ(file.st_mode & 0777, 0660u);
      EXPECT_EQ(openAt(path_), "cannot listen at " + path_ + ": another agent does");
   }
   EXPECT_FALSE(std::filesystem::exists(path_));
   std::ofstream(path_) << "kept";
   EXPECT_EQ(openAt(path_), "cannot listen at " + path_ + ": it is not a socket");
   EXPECT_TRUE(std::filesystem::exists(path_));
   EXPECT_TRUE(contains(openAt(inDirectory("no/such")), "No such file or directory"))
         << openAt(inDirectory("no/such"));
   EXPECT_TRUE(contains(openAt(std::string(200, 'a')), "name too long"))
         << openAt(std::string(200, 'a'));
   for (char const* const wrong : {"10.0.0.1:9000", "127.0.0.1", "127.0.0.1:70000", ":1"})
      EXPECT_ANY_THROW(Listener::loopback(wrong)) << wrong;
}

LiveFigures figures() {
   LiveFigures figures;
   figures.routes = {
         {"offloaded", "", 9000}, {"trapped", "no-input", 7}, {"trapped", "no-input", 1}};
   for (int i = 0; i < 3; ++i)
      figures.routes.push_back({"trapped", "A free text\n\"of a peer\"", 1});
   figures.tables = {{"routes", 9000, 10000}};
   figures.groups = 12;
   figures.connected = true;
   figures.reroutes = 3;
   return figures;
}

TEST_F(LiveOperations, MetricsArePrometheusTextWithBoundedLabels) {
   Metrics metrics(figures);
   metrics.observeWrite(0.0007);
   metrics.observeWrite(0.004);
   metrics.observeProgramming(9);
   std::string const text = metrics.text();
   for (char const* const line : {
              "# HELP velmroute_routes Routes by state, and by the reason of that state.",
              "# TYPE velmroute_routes gauge",
              "velmroute_routes{state=\"offloaded\",reason=\"\"} 9000",
              "velmroute_routes{state=\"trapped\",reason=\"no-input\"} 8",
              "velmroute_routes{state=\"trapped\",reason=\"other\"} 3",
              "velmroute_groups 12",
              "velmroute_table_entries{table=\"routes\"} 9000",
              "velmroute_table_size{table=\"routes\"} 10000",
              "velmroute_switch_connected 1",
              "# TYPE velmroute_reroutes_total counter",
              "velmroute_reroutes_total 3",
              "# TYPE velmroute_write_seconds histogram",
              "velmroute_write_seconds_bucket{le=\"0.0005\"} 0",
              "velmroute_write_seconds_bucket{le=\"0.001\"} 1",
              "velmroute_write_seconds_bucket{le=\"+Inf\"} 2",
              "velmroute_write_seconds_count 2",
              "velmroute_programming_seconds_sum 9",
        })
      EXPECT_TRUE(contains(text, std::string(line) + '\n')) << text;
   EXPECT_FALSE(contains(text, "peer")) << text;

   std::vector<std::string> words;
   Metrics const many([&] {
      LiveFigures made;
      for (int i = 0; i < 1000; ++i)
         words.push_back("w" + std::to_string(i));
      for (std::string const& word : words)
         made.routes.push_back({"trapped", word, 1});
      return made;
   });
   std::string const bounded = many.text();
   std::size_t labels = 0;
   for (std::size_t at = 0; (at = bounded.find("\nvelmroute_routes{", at)) != std::string::npos;
        ++at)
      ++labels;
   EXPECT_EQ(labels, Metrics::maxRouteLabels + 1);
   EXPECT_TRUE(contains(bounded, "{state=\"other\",reason=\"other\"} 936\n")) << bounded;
}

TEST_F(LiveOperations, ServesMetricsAndTheReportByHttpAndNothingElse) {
   Metrics const metrics(figures);
   std::string const path = inDirectory("metrics.sock");
   auto const page = std::make_shared<std::string const>(2'000'000, 'p');
   auto const report = [&] { return page; };
   MetricsServer server("unix:" + path, metrics, report);
   loop_.add(server);
   std::string const get = "GET /metrics HTTP/1.1\r\nHost: a\r\n";
   std::map<std::string, std::string> const cases = {
         {get + "\r\n", "HTTP/1.1 200 OK"},
         {"HEAD /metrics HTTP/1.0\r\n\r\n", "HTTP/1.1 200 OK"},
         {"HEAD /report HTTP/1.0\r\n\r\n", "HTTP/1.1 200 OK"},
         {"POST /report HTTP/1.1\r\nHost: a\r\nContent-Length: 0\r\n\r\n", "HTTP/1.1 405"},
         {"GET /report/ HTTP/1.1\r\nHost: a\r\n\r\n", "HTTP/1.1 404"},
         {"GET / HTTP/1.1\r\nHost: a\r\n\r\n", "HTTP/1.1 404"},
         {"GET /metrics/x HTTP/1.1\r\nHost: a\r\n\r\n", "HTTP/1.1 404"},
         {"POST /metrics HTTP/1.1\r\nHost: a\r\nContent-Length: 3\r\n\r\nabc", "HTTP/1.1 405"},
         {get + "X: " + std::string(60000, 'x') + "\r\n\r\n", "HTTP/1.1 431"},
   };
   for (auto const& [request, begin] : cases) {
      Peer peer(path, request);
      turns(200);
      EXPECT_TRUE(peer.received().starts_with(begin)) << peer.received();
   }
   {
      std::vector<std::unique_ptr<Peer>> peers;
      for (int i = 0; i < 100; ++i) {
         peers.push_back(std::make_unique<Peer>(path, std::string_view("\0\xff garbage", 10)));
         turns(2);
      }
   }
   turns(200);
   Peer peer(path, get + "Connection: close\r\n\r\n");
   turns(200);
   EXPECT_TRUE(contains(peer.received(), "Content-Type: text/plain; version=0.0.4"))
         << peer.received();
   EXPECT_TRUE(contains(peer.received(), "\r\n\r\n# HELP velmroute_routes ")) << peer.received();
   EXPECT_TRUE(peer.ended());
   // A reader that takes nothing holds the page and no copy of it.
   {
      Peer slow(path, "GET /report HTTP/1.1\r\nHost: a\r\n\r\n");
      turns(50);
      EXPECT_EQ(page.use_count(), 2);
   }
   turns(200);
   EXPECT_EQ(page.use_count(), 1);
   Peer reader(path, "GET /report HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n");
   for (int i = 0; i < 100 && !reader.ended(); ++i)
      turns(5);
   std::string const& answer = reader.received();
   for (std::string const header :
        {"text/html; charset=utf-8", "no-store", "default-src 'none'", "frame-ancestors 'none'"})
      EXPECT_TRUE(contains(answer, header)) << header;
   EXPECT_TRUE(answer.ends_with("\r\n\r\n" + *page));
   EXPECT_GT(MetricsServer("127.0.0.1:0", metrics, report).port(), 0);
}

class LogTest : public LiveOperations {
 protected:
   LogTest() { EXPECT_EQ(::pipe2(pipe_, O_NONBLOCK), 0); }
   ~LogTest() override {
      ::close(pipe_[0]);
      ::close(pipe_[1]);
   }
   std::string printed() const {
      std::string text(65536, '\0');
      ssize_t const size = ::read(pipe_[0], text.data(), text.size());
      text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
      return text;
   }

   int pipe_[2];
};

TEST_F(LogTest, LimitsEqualLinesAndSaysHowManyWereLeftOut) {
   LiveLog log(pipe_[1], LiveLog::Form::journal, {.lines = 2, .period = 60, .keys = 2});
   for (int i = 0; i < 125; ++i)
      log.log(LogLevel::warning, "lost", "lost connection " + std::to_string(i));
   log.debug("hidden");
   log.error("a\n<0>b\x1b");
   EXPECT_EQ(printed(), "<4>lost connection 0\n<4>lost connection 1\n<3>a\\x0a<0>b\\x1b\n");
   EXPECT_EQ(log.suppressed(), 123u);
   pass(59);
   EXPECT_EQ(printed(), "");
   pass(1);
   EXPECT_EQ(printed(), "<4>lost connection 124 ... and 123 more like this\n");
   EXPECT_EQ(time_->nextDeadline(), Qor::never);
   log.log(LogLevel::warning, "lost", "lost again");
   EXPECT_EQ(printed(), "<4>lost again\n");
   // A flood of different texts: those beyond the number of keys share one limit.
   for (int i = 0; i < 1000; ++i)
      log.error("fault " + std::to_string(i));
   EXPECT_EQ(printed(), "<3>fault 0\n<3>fault 1\n<3>fault 2\n");
   log.levelIs(LogLevel::error);
   log.warning("hidden, too");
   pass(60);
   EXPECT_EQ(printed(), "<3>fault 999 ... and 997 more like this\n");
   EXPECT_EQ(logLevelNamed("debug"), LogLevel::debug);
   EXPECT_EQ(logLevelNamed("loud"), std::nullopt);
}

TEST_F(LogTest, DoesNotWaitForAReader) {
   ::fcntl(pipe_[1], F_SETFL, 0);  // a write to the full pipe would block for ever
   LiveLog log(pipe_[1], LiveLog::Form::terminal);
   for (int i = 0; i < 1000; ++i)
      log.error(std::string(900, 'x') + std::to_string(i));
   EXPECT_GT(log.suppressed(), 100u);
   EXPECT_EQ(printed().substr(19, 12), " error: xxxx");  // behind the time
}

TEST_F(LiveOperations, SignalsAndNoticesPassThroughTheLoop) {
   std::vector<std::string> events;
   SignalSource signals([&] { events.emplace_back("stop"); },
                        [&] { events.emplace_back("reload"); });
   loop_.add(signals);
   for (int const number : {SIGHUP, SIGHUP, SIGTERM, SIGHUP}) {
      ::raise(number);
      turns(1);
   }
   EXPECT_EQ(events, (Strings{"reload", "reload", "stop", "reload"}));
   EXPECT_EQ(interruptName(), "TERM");

   int const manager = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);
   sockaddr_un const address = unixAddress(path_);
   ASSERT_EQ(::bind(manager, generic(&address), sizeof address), 0);
   auto const notices = [&] {
      std::array<char, 256> bytes;
      std::vector<std::string> received;
      ssize_t size = 0;
      while ((size = ::recv(manager, bytes.data(), bytes.size(), 0)) > 0)
         received.emplace_back(bytes.data(), static_cast<std::size_t>(size));
      return received;
   };
   ::setenv("NOTIFY_SOCKET", path_.c_str(), 1);
   ::setenv("WATCHDOG_USEC", "20000000", 1);
   {
      ServiceNotice notice;
      notice.ready();
      notice.status("9 routes\nMAINPID=1");
      EXPECT_EQ(notices(), (Strings{"WATCHDOG=1", "READY=1", "STATUS=9 routes MAINPID=1"}));
      pass(9.9);
      EXPECT_EQ(notices(), (Strings{}));
      pass(0.1);
      EXPECT_EQ(notices(), (Strings{"WATCHDOG=1"}));
      pass(10);
      EXPECT_EQ(notices(), (Strings{"WATCHDOG=1"}));
   }
   ::unsetenv("WATCHDOG_USEC");
   ServiceNotice notice;
   notice.stopping();
   EXPECT_EQ(notices(), (Strings{"STOPPING=1"}));
   EXPECT_EQ(time_->nextDeadline(), Qor::never);
   ::unsetenv("NOTIFY_SOCKET");
   ::close(manager);
}

}  // namespace
