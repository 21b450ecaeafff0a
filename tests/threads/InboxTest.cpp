// The inbox under the thread sanitizer: its own program, since that sanitizer tolerates no other.
#include "Qor/Inbox.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Qor::Inbox;

// The wake-up of a loop that waits.
class Bell {
 public:
   void ring() {
      std::lock_guard const lock(mutex_);
      rung_ = true;
      changed_.notify_one();
   }
   void wait() {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return rung_; });
      rung_ = false;
   }

 private:
   std::mutex mutex_;
   std::condition_variable changed_;
   bool rung_ = false;
};

// Without a lost wake-up, or the loop would wait for ever.
TEST(Inbox, RunsEachFunctionOnceInItsPostersOrderOnTheLoopsThread) {
   constexpr int posters = 4;
   constexpr int each = 2000;
   Bell bell;
   Inbox inbox([&bell] { bell.ring(); });
   std::vector<int> next(posters);  // no lock: only the loop's thread may come here
   std::thread::id const loop = std::this_thread::get_id();
   int disorder = 0;
   std::vector<std::thread> threads;
   for (int p = 0; p < posters; ++p) {
      threads.emplace_back([&, p, sender = inbox.sender()] {
         for (int i = 0; i < each; ++i) {
            sender.post([&, p, i] {
               disorder += next[p] != i || std::this_thread::get_id() != loop;
               next[p] = i + 1;
            });
         }
      });
   }
   std::size_t count = 0;
   while (count < std::size_t{posters} * each) {
      bell.wait();
      count += inbox.run();
   }
   for (std::thread& thread : threads)
      thread.join();
   EXPECT_EQ(inbox.run(), 0u);
   EXPECT_EQ(disorder, 0);
   EXPECT_EQ(next, std::vector<int>(posters, each));
}

// Neither runs a function nor wakes a loop that is no more, whenever the inbox goes.
TEST(Inbox, EndsWhileOthersPost) {
   for (int round = 0; round < 50; ++round) {
      std::atomic<bool> ended = false;
      std::atomic<int> late = 0;
      int ran = 0;
      std::optional<Inbox> inbox;
      inbox.emplace([&] { late += ended; });
      std::thread poster([&, sender = inbox->sender()] {
         while (sender.post([&] { ++ran; }))
            std::this_thread::yield();
      });
      for (int turn = 0; turn <= round; ++turn)
         inbox->run();
      inbox.reset();
      ended = true;
      int const ranBefore = ran;
      poster.join();
      EXPECT_EQ(ran, ranBefore);
      EXPECT_EQ(late, 0);
   }
}

TEST(Inbox, AnnouncesTheFunctionsThatARunLeavesBehind) {
   int wakes = 0;
   std::string log;
   std::optional<Inbox> inbox;
   inbox.emplace([&] { ++wakes; });
   Inbox::Sender const sender = inbox->sender();
   auto const note = [&](char c) { return [&log, c] { log += c; }; };

   sender.post([&] {
      log += 'a';
      sender.post(note('b'));
   });
   EXPECT_EQ(wakes, 1);
   EXPECT_EQ(inbox->run(), 1u);
   EXPECT_EQ(wakes, 2);
   EXPECT_EQ(inbox->run(), 1u);
   EXPECT_EQ(log, "ab");
   EXPECT_EQ(inbox->run(), 0u);
   EXPECT_EQ(wakes, 2);

   sender.post([] { throw std::runtime_error("a completion that fails"); });
   sender.post(note('c'));
   EXPECT_EQ(wakes, 3);
   EXPECT_THROW(inbox->run(), std::runtime_error);
   EXPECT_EQ(wakes, 4);

   sender.post([&] {  // behind "c"
      inbox->run();
      log += 'e';
   });
   sender.post(note('d'));
   EXPECT_EQ(inbox->run(), 2u);
   EXPECT_EQ(log, "abcde");

   // Captured objects post when they are destroyed, also from the inbox's destructor.
   struct Poster {
      ~Poster() {
         sender.post([] {});
      }
      Inbox::Sender sender;
   };
   sender.post([&, last = std::make_shared<Poster>(Poster{sender})] { inbox.reset(); });
   sender.post([&log, last = std::make_shared<Poster>(Poster{sender})] { log += '!'; });
   inbox->run();
   EXPECT_EQ(log, "abcde");
   EXPECT_FALSE(sender.post([] {}));
}

}  // namespace
