// Lab equipment on simulated parallel ports: the trigger pulses of a
// crossmodal block as the amplifier would receive them.
#include <fcntl.h>
#include <glob.h>

#include "fixture.h"
#include "../../tools/trigger_box.h"

namespace {
struct Write { long long us; int reg, value; };

std::vector<Write> trace(const std::string& text) {
  std::vector<Write> out;
  std::istringstream s(text);
  Write w;
  while (s >> w.us >> w.reg >> w.value) out.push_back(w);
  return out;
}

// Show actions of the timing trace: trial, type, how long the action took
// (us) and CLOCK_MONOTONIC when it began (us), the clock of the port trace.
struct Show { unsigned nummer; std::string type; long long took_us, start_us; };
// The show actions of the trace; with `triggered`, those of trials that carry a trigger (not trial 3).
std::vector<Show> shows(const std::string& tsv, bool triggered = false) {
  std::vector<Show> out;
  for (const auto& c : timing_shows(tsv))
    if (!(triggered && c[1] == "3"))
      out.push_back({static_cast<unsigned>(std::stoul(c[1])), c[2], std::stoll(c[7]) - std::stoll(c[5]), std::stoll(c[9])});
  return out;
}
bool glob_none(const char* pattern) {
  glob_t g;
  return glob(pattern, 0, nullptr, &g) != 0 || (globfree(&g), false);
}

// Sets the status register of the simulated LPT1 in place, as a box does;
// the program has the file mapped, so it is never truncated.
void set_status(const harness::Dir& dir, unsigned char v) {
  const int fd = open(dir.path("lpt1").c_str(), O_RDWR);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(pwrite(fd, &v, 1, 1), 1);
  close(fd);
}

// A crossmodal block: two tones and two arrows with trigger codes 11, 21,
// 12 and 22, then a trial without one.
const char kCrossmodal[] =
    "prep nummer=1 index=0 t0=300 trigger=11 uv=hoch;\n"
    "pfeil nummer=1 index=0 t0=800 t1=400 kritisch=1 trigger=21 uv=passt;\n"
    "prep nummer=2 index=1 t0=1500 trigger=12 uv=tief;\n"
    "pfeil nummer=2 index=1 t0=2000 t1=400 kritisch=0 trigger=22 uv=anders;\n"
    "null nummer=3 t0=2600 t1=100;\n";
const int kCodes[] = {11, 21, 12, 22};
}  // namespace

class Ports : public ProgramTest {};

TEST_F(Ports, EveryOnsetGivesOneTriggerPulseOfThreeMilliseconds) {
  dir.write("t.s", kCrossmodal);
  const harness::Run r = run(args_and({"-timing=" + dir.path("timing.tsv")}));
  ASSERT_EQ(r.status, 0) << log;
  const std::vector<Write> t = trace(dir.read("lpt1.trace"));
  // Pen and LED lines start low on the same port, then the trigger output
  // sets its rest level (0xFF, inverted); each pulse is complement and rest.
  ASSERT_EQ(t.size(), 3u + 2 * 4) << dir.read("lpt1.trace");
  EXPECT_EQ(t[2].value, 0xff);
  const std::vector<Show> onsets = shows(dir.read("timing.tsv"), true);
  ASSERT_EQ(onsets.size(), 4u);
  // A fault in the program shows in every pulse, while a machine busy with
  // other tests may stall one: each pulse must be its show action's and
  // about 3 ms long, and at least three of the four exact.
  int exact = 0;
  std::string figures;  // width, rise, end of the show after the pulse (µs)
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    const Write &on = t[3 + 2 * i], &off = t[4 + 2 * i];
    EXPECT_TRUE(on.reg == 0 && on.value == 255 - kCodes[i] && off.value == 0xff) << on.value << " " << off.value;
    const long long width = off.us - on.us;
    EXPECT_TRUE(width >= 2999 && width < 50000) << width;  // trace times are whole microseconds
    // The pulse begins once the stimulus is out: at once for a tone, at the
    // retrace for a picture (up to two frames of 60 Hz); the show action ends
    // with it.
    const long long rise = on.us - onsets[i].start_us;
    const long long retrace = onsets[i].type == "ixmod_" ? 33334 : 0;
    const long long after_pulse = onsets[i].start_us + onsets[i].took_us - off.us;
    EXPECT_TRUE(rise >= 0 && rise < retrace + 50000 && std::abs(after_pulse) < 50000) << rise << " " << after_pulse;
    if (width < 3500 && rise < retrace + 1000 && std::abs(after_pulse) < 1000) ++exact;
    figures += " " + std::to_string(width) + "/" + std::to_string(rise) + "/" + std::to_string(after_pulse);
  }
  EXPECT_GE(exact, 3) << "pulses late or stretched beyond 1 ms:" << figures;
}

TEST_F(Ports, ASerialTriggerInterfaceGetsOneCodeByteAndTheRestLevelPerOnset) {
  // Inverted; the byte values without inversion: unit TrigOut serial table.
  dir.write("t.s", kCrossmodal);
  trigger_box box;
  ASSERT_TRUE(box.ok());
  const harness::Run r =
      run(args_and({box.arg(2), "-triggerport=com2", "-timing=" + dir.path("timing.tsv"), "-trigger-invert=yes"}));
  ASSERT_EQ(r.status, 0) << log;
  EXPECT_EQ(harness::lines_with(log, "trigger output: com2 on " + box.path() + ", 115200 bit/s, byte mode").size(), 1u)
      << log;
  std::vector<int> want = {0xff};
  for (const int code : kCodes) want.insert(want.end(), {255 - code, 0xff});
  const std::vector<trigger_box::byte_at> got = box.received(want.size());
  std::vector<int> values;
  for (const auto& b : got) values.push_back(b.value);
  ASSERT_EQ(values, want);
  const std::vector<Show> onsets = shows(dir.read("timing.tsv"), true);
  ASSERT_EQ(onsets.size(), 4u);
  // The pseudo-terminal may deliver late, never early: the code after its
  // show action began, the rest level a pulse width after that.
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    EXPECT_GE(static_cast<long long>(got[1 + 2 * i].us), onsets[i].start_us);
    EXPECT_GE(static_cast<long long>(got[2 + 2 * i].us), onsets[i].start_us + 3000);
  }
}

// A port that cannot be used: Fault.PortFileThatCannotBeOpenedLeavesTheRunWithoutOutputs.
TEST_F(Ports, WithoutAParallelPortTheRunGoesOnWithoutTriggers) {
  if (!glob_none("/dev/parport*")) GTEST_SKIP() << "this machine has a parallel port";
  dir.write("t.s", "null nummer=1 t0=100 t1=100 trigger=5;\n");
  std::vector<std::string> a = args();
  a.back() = "-lpt1-device=auto";
  const harness::Run r = run(a);
  EXPECT_EQ(r.status, 0) << log;
  // Left to auto: one line, and the trigger values are dropped without a line each.
  EXPECT_EQ(harness::lines_with(log, "no parallel port on this machine: no pen, LED or trigger output").size(), 1u)
      << log;
  for (const char* no : {"error: ", "no trigger output", "no pen output", "no LED output"})
    EXPECT_FALSE(harness::contains(log, no)) << no << "\n" << log;
}

TEST_F(Ports, ABlockWaitsForTheAcknowledgeLineOfTheResponseBox) {
  dir.write("t.s", "pause t0=0 t1=0;\nnull nummer=1 t0=100 t1=100;\n");
  const std::vector<std::string> a = args_and({"-trigger-input=ack", "-timing=" + dir.path("timing.tsv")});
  // A simulated port with the box's keys released (0x38); nothing pressed.
  dir.write("lpt1", std::string("\x00\x38\x00\x00", 4));
  const harness::Started p = harness::start(dir, a);
  harness::sleep_until_ms(harness::steady_ns(), 1500);
  const long long raised_us = harness::steady_ns() / 1000;
  set_status(dir, 0x78);  // the acknowledge line
  const harness::Run r = finish(p);
  ASSERT_EQ(r.status, 0) << log;
  const std::vector<Show> s = shows(dir.read("timing.tsv"));
  ASSERT_EQ(s.size(), 2u);  // the pause, then the null stimulus
  EXPECT_EQ(s[1].type, "null");
  EXPECT_GT(s[1].start_us, raised_us) << "the block went on before the line was raised";

  // Keys pressed (or the box missing) at start-up: the run does not begin.
  set_status(dir, 0x00);
  EXPECT_EQ(run(a).status, 255);
  EXPECT_TRUE(harness::contains(log, "vok/port: Key 1 or Key 2 pressed/Keys not connected."));
}
