// The processor the program's loop keeps to itself. The loop spins between
// actions; on a machine of few cores the X server, woken by a key, would
// otherwise wait behind it, and every reaction time would carry that wait.
// The loop's core is the least busy one; the program's other threads (the
// tick, sound and toolkit threads) keep off it, so that none of them takes
// it from the loop at the moment an action falls due.
#pragma once
#include <string>
#include <vector>

// Idle and total time of each CPU from the text of /proc/stat (index: CPU
// number; a total of 0 marks a number that is not there).
struct cpu_times {
  std::vector<unsigned long long> idle, total;
};
cpu_times cpu_parse_stat(const char* text);
// Of the allowed CPUs, the one idle longest between two readings; a tie goes
// to the higher number (CPU 0 takes most interrupts). -1 when fewer than two
// are allowed.
int cpu_least_busy(const cpu_times& before, const cpu_times& after, const std::vector<int>& allowed);

// The first reading, at start-up.
void cpu_sample();
// Keeps the calling thread (the loop's) to one CPU as config key "cpu" says
// (auto: the least busy since cpu_sample; a CPU number; none) and every
// other thread of the process to the other allowed CPUs. Logged once. The
// CPU, or -1 where none was chosen.
int cpu_pin();
// At real-time priority the threads go back to every core allowed at
// start-up (a loop spinning at real-time priority would starve a thread
// left on its core). With spread false the loop's core is its own again,
// and threads started since (they inherit their starter's core) are moved
// off it. Nothing where the program keeps to no core.
void cpu_spread(bool spread);
// What cpu_pin did, in words, and whether the machine left it a choice.
const std::string& cpu_account();
bool cpu_alone();
// Test seam: forget the choice (the threads keep their cores).
void cpu_forget();
