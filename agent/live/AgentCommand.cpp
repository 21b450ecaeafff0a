#include "agent/live/AgentCommand.h"

#include <fmt/format.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <iostream>

#include "agent/live/LiveAgent.h"
#include "agent/live/LiveViews.h"
#include "agent/report/ExitCode.h"

namespace Agent {

namespace {

constexpr int receiveBuffer = 32 << 20;  // bytes; a burst of 100,000 notifications fits

class Signals final : public EventSource {
 public:
   explicit Signals(std::function<void(int)> handler) : handler_(std::move(handler)) {
      sigset_t set;
      sigemptyset(&set);
      for (int const number : {SIGTERM, SIGINT, SIGHUP})
         sigaddset(&set, number);
      sigprocmask(SIG_BLOCK, &set, nullptr);
      fd_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
   }
   ~Signals() override { ::close(fd_); }
   int fd() const override { return fd_; }
   void ready(bool, bool) override {
      signalfd_siginfo info{};
      while (::read(fd_, &info, sizeof info) == sizeof info)
         handler_(static_cast<int>(info.ssi_signo));
   }

 private:
   std::function<void(int)> const handler_;
   int fd_;
};

std::optional<Configuration> load(std::string const& file) {
   auto loaded = Configuration::load(file);
   if (auto* const faults = std::get_if<std::vector<InputError>>(&loaded)) {
      for (InputError const& fault : *faults)
         std::cerr << fault.toString() << '\n';
      return std::nullopt;
   }
   return std::get<Configuration>(std::move(loaded));
}

}  // namespace

int runAgent(AgentOptions const& options) {
   auto configuration = load(options.configFile);
   if (!configuration) return exitFailed;
   Qor::activityManagerIs(Qor::make<Qor::ActivityManager>(Qor::ActivityManager::TimeBase::real));
   EventLoop loop;
   auto const log = [](LiveLevel, std::string const& text) { std::cerr << text << std::endl; };
   auto const socket = Kernel::newSocket(receiveBuffer);
   LiveAgent agent(*std::move(configuration), loop, *socket, log);
   int code = exitDone;
   agent.onFailed([&] {
      code = exitFailed;
      loop.stop();
   });
   Signals signals([&](int number) {
      if (number != SIGHUP) return agent.end(options.flush, [&] { loop.stop(); });
      if (auto changed = load(options.configFile)) agent.configurationIs(*std::move(changed));
   });
   loop.add(signals);
   loop.run();
   return code;
}

}  // namespace Agent
