// The processor the program keeps to. Its loop spins between actions; on a
// machine of few cores the X server, woken by a key, would otherwise wait
// behind the program's own timer, sound and input threads on the core the
// loop leaves free, and every reaction time would carry that wait. Kept
// together on one core, the program leaves the others to the X server and
// the sound server.
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
// Keeps every thread of the process, and every thread it starts later, to
// one CPU as config key "cpu" says: auto (the least busy since cpu_sample),
// a CPU number, or none. Logged once. The CPU, or -1 where none was chosen.
int cpu_pin();
// At real-time priority the threads go back to every core allowed at
// start-up: a loop spinning at real-time priority would starve the others
// on its one core. Back on the one core with spread false. Nothing where
// the program keeps to no core.
void cpu_spread(bool spread);
// What cpu_pin did, in words, and whether the machine left it a choice.
const std::string& cpu_account();
bool cpu_alone();
