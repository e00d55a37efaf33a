#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "platform/cpu.h"
#include "platform/priority.h"
#include "platform/timer.h"
#include "test_support.h"

namespace {
// A nanosecond counter moved by hand, or by step on every read.
uint64_t now_ns = 0, step_ns = 0;
uint64_t fake_counter() { return (now_ns += step_ns) - step_ns; }
const uint64_t kMs = 1000000;

struct Clock : ::testing::Test {
  // The counter starts at 1000 s: a stamp of 0 means "no stamp yet".
  void SetUp() override {
    alleg_timer_reset(), now_ns = 1000 * 1000 * kMs, step_ns = 0, alleg_timer_counter(fake_counter);
  }
  void TearDown() override { alleg_timer_reset(); }
  static void ticks(int n) {
    for (int i = 0; i < n; ++i, alleg_timer_handler()) now_ns += kMs;
  }
};
}  // namespace

TEST_F(Clock, InterpolatesUpTo19MsAndFreezesWhileStopped) {
  ticks(5);
  EXPECT_EQ(alleg_get_timer(), 0);  // not started
  alleg_timer_start();
  ticks(3);
  now_ns += 20 * kMs - 1;
  EXPECT_EQ(std::make_pair(alleg_get_timer(), alleg_get_utimer()), std::make_pair(3L, 3000ull));  // whole ticks only
  alleg_timer_frequency(1000000000);
  EXPECT_EQ(std::make_pair(alleg_get_timer(), alleg_get_utimer()), std::make_pair(22L, 3000ull + 19999u));
  now_ns += 1;  // 20 ms old: the stamp is stale, the ms clock adds nothing
  EXPECT_EQ(alleg_get_timer(), 3);
  now_ns += 480 * kMs;
  EXPECT_EQ(alleg_get_utimer(), 3000u + 500000u);  // not clamped
  ticks(1);
  EXPECT_EQ(alleg_get_timer(), 4);
  // Stopping freezes the reading; continuing resumes from exactly there.
  alleg_timer_stop();
  ticks(3);  // callbacks while stopped do not count
  now_ns += 500 * kMs;
  EXPECT_EQ(alleg_get_timer(), 4);
  alleg_timer_cont();
  now_ns += 4 * kMs;
  EXPECT_EQ(alleg_get_timer(), 8);
  ticks(2);
  EXPECT_EQ(alleg_get_timer(), 6);
}

TEST_F(Clock, WaitsSpinOnTheClock) {
  alleg_timer_frequency(1000000000);
  alleg_timer_start();
  alleg_rest(0);  // the counter stands still: only waits that end at once
  alleg_urest(0);
  step_ns = kMs / 10;
  const uint64_t from = now_ns;
  alleg_rest(5);
  EXPECT_EQ((now_ns - from) / kMs, 5u);
  alleg_urest(3000);
  EXPECT_GE(now_ns - from, 8 * kMs);
}

// The tick thread's step: a wake-up 3.4 ms after the due time counts every
// millisecond due since, each stamped when it was due, so the clock reads
// exactly the time passed; an early wake-up counts nothing.
TEST_F(Clock, LateWakeUpCountsEveryDueTickStampedAtItsDueTime) {
  alleg_timer_frequency(1000000000);
  alleg_timer_start();
  const uint64_t mono0 = 50 * kMs;  // CLOCK_MONOTONIC and the counter differ by an offset
  const uint64_t counter0 = now_ns;
  uint64_t due = mono0 + kMs;
  now_ns = counter0 + kMs / 2;
  EXPECT_EQ(alleg_timer_due(due, mono0 + kMs / 2, now_ns), due);  // early
  EXPECT_EQ(alleg_get_utimer(), 500u);
  now_ns = counter0 + 4 * kMs + 400000;
  due = alleg_timer_due(due, mono0 + 4 * kMs + 400000, now_ns);
  EXPECT_EQ(due, mono0 + 5 * kMs);
  EXPECT_EQ(std::make_pair(alleg_get_timer(), alleg_get_utimer()), std::make_pair(4L, 4400ull));
  // Ten thousand wake-ups each 0.3 ms late: no drift.
  for (int i = 0; i < 10000; ++i) {
    now_ns = counter0 + (due - mono0) + 300000;
    due = alleg_timer_due(due, due + 300000, now_ns);
  }
  EXPECT_EQ(std::make_pair(alleg_get_timer(), alleg_get_utimer()), std::make_pair(10004L, 10004300ull));
}

// Stops nest; continuing a running clock keeps its part of a millisecond.
TEST_F(Clock, StopsNestAndContinuingARunningClockKeepsItsReading) {
  alleg_timer_frequency(1000000000);
  alleg_timer_start();
  now_ns += 600000;
  EXPECT_EQ(std::make_pair(alleg_timer_cont(), alleg_get_utimer()), std::make_pair(0, 600ull));
  alleg_timer_stop(), alleg_timer_stop(), now_ns += 100 * kMs;
  EXPECT_EQ(std::make_pair(alleg_timer_cont(), alleg_get_utimer()), std::make_pair(1, 600ull));  // still stopped
  EXPECT_EQ(alleg_timer_cont(), 0);
}

// Switched away, the priority goes only as far down as it can come back from.
TEST(Priority, SwitchedAwayGoesDownOnlyAsFarAsItCanComeBack) {
  test_allegro();
  const struct { unsigned cls; unsigned long long nice, rtprio; bool cap; prio_lowering want; } kCases[] = {
      {NORMAL_PRIORITY_CLASS, 0, 0, false, LOWER_BATCH}, {NORMAL_PRIORITY_CLASS, 20, 0, false, LOWER_IDLE},
      {HIGH_PRIORITY_CLASS, 20, 0, false, LOWER_BATCH},  {NORMAL_PRIORITY_CLASS, 0, 0, true, LOWER_IDLE},
      {REALTIME_PRIORITY_CLASS, 20, 99, false, LOWER_IDLE}, {REALTIME_PRIORITY_CLASS, 40, 0, false, LOWER_NONE}};
  for (const auto& c : kCases) EXPECT_EQ(alleg_lowering(c.cls, c.nice, c.rtprio, c.cap), c.want) << c.cls << " " << c.nice;
}

// The program keeps to the allowed core that was idle longest between two
// readings of /proc/stat; a tie goes to the higher number.
TEST(Cpu, TheLeastBusyAllowedCoreIsChosen) {
  const cpu_times before = cpu_parse_stat(
      "cpu  30 0 30 300 0 0 0 0 0 0\ncpu0 10 0 10 100 0 0 0 0 0 0\ncpu1 10 0 10 100 0 0 0 0 0 0\n"
      "cpu2 10 0 10 100 0 0 0 0 0 0\nintr 5 0\n");
  ASSERT_EQ(before.total.size(), 3u);
  EXPECT_EQ(before.total[1], 120u);
  const cpu_times after = cpu_parse_stat(
      "cpu  0 0 0 0 0 0 0 0 0 0\ncpu0 10 0 10 110 0 0 0 0 0 0\ncpu1 15 0 10 104 1 0 0 0 0 0\n"
      "cpu2 20 0 10 100 0 0 0 0 0 0\n");
  const struct { std::vector<int> allowed; int want; } kCases[] = {
      {{0, 1, 2}, 0},  // idle 10, 5 (iowait counts as idle), 0
      {{1, 2}, 1},
      {{2}, -1},       // nothing to choose
      {{1, 7}, 1},     // a core missing from the readings counts as never idle
  };
  for (const auto& c : kCases) EXPECT_EQ(cpu_least_busy(before, after, c.allowed), c.want) << c.allowed.size();
  const cpu_times same = cpu_parse_stat("cpu0 1 0 1 10 0 0 0 0\ncpu1 1 0 1 10 0 0 0 0\n");
  EXPECT_EQ(cpu_least_busy(same, same, {0, 1}), 1);
}

// The calling thread (the loop's) keeps its core to itself; every other
// thread, one started before and one started after the choice (it inherits
// the loop's core until the next class is set), uses the rest. Real-time
// gives every thread every core.
TEST(Cpu, TheLoopKeepsItsCoreAndTheOtherThreadsTheRest) {
  cpu_set_t start;
  ASSERT_EQ(sched_getaffinity(0, sizeof start, &start), 0);
  if (CPU_COUNT(&start) < 2) GTEST_SKIP() << "one processor allowed";
  const auto cores = [](pid_t tid) {
    cpu_set_t s;
    CPU_ZERO(&s);
    sched_getaffinity(tid, sizeof s, &s);
    std::vector<int> v;
    for (int c = 0; c < CPU_SETSIZE; ++c)
      if (CPU_ISSET(c, &s)) v.push_back(c);
    return v;
  };
  std::atomic<bool> stop{false};
  std::atomic<pid_t> tids[2] = {{0}, {0}};
  const auto helper = [&](int i) {
    return std::thread([&, i] {
      tids[i] = static_cast<pid_t>(syscall(SYS_gettid));
      while (!stop) usleep(1000);
    });
  };
  std::thread before = helper(0);
  while (!tids[0]) usleep(100);
  LogCapture log({"-cpu=" + std::to_string(cores(0).back())});
  const int cpu = cpu_pin();
  std::thread after = helper(1);
  while (!tids[1]) usleep(100);
  std::vector<int> rest = cores(0);
  EXPECT_EQ(cpu, cores(0).back());
  EXPECT_EQ(rest, std::vector<int>{cpu});
  rest.clear();
  for (int c = 0; c < CPU_SETSIZE; ++c)
    if (CPU_ISSET(c, &start) && c != cpu) rest.push_back(c);
  EXPECT_EQ(cores(tids[0]), rest);
  EXPECT_EQ(cores(tids[1]), std::vector<int>{cpu});
  cpu_spread(false);
  EXPECT_EQ(cores(tids[1]), rest);
  EXPECT_EQ(cores(0), std::vector<int>{cpu});
  EXPECT_TRUE(log.has("cpu: the loop keeps CPU " + std::to_string(cpu) + " of ")) << log.text();
  cpu_spread(true);
  for (pid_t t : {pid_t(0), tids[0].load(), tids[1].load()}) EXPECT_EQ(cores(t).size(), size_t(CPU_COUNT(&start)));
  cpu_forget();
  stop = true;
  before.join();
  after.join();
}
