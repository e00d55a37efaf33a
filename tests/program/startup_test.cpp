// Start-up chain, block loop and exit status of the whole program.

#include "fixture.h"

using harness::contains;
using harness::lines_with;

namespace {

using Program = ProgramTest;

TEST_F(Program, RunsBlocksOfNullStimuliAndExitsWithZero) {
  dir.write("t.s",
            "null nummer=1 t0=100 t1=50 kritisch=-1\n"
            "null nummer=2 t0=300 t1=50\n"
            "\n"
            "null nummer=3 t0=10 t1=20\n");
  const harness::Run r = run(args());
  EXPECT_EQ(r.status, 0) << r.err;
  expect_log_well_formed();
  EXPECT_EQ(lines_with(log, "Running on Linux").size(), 2u) << log;
  const std::vector<std::string> rdtsc = lines_with(log, "rdtsc:");
  ASSERT_EQ(rdtsc.size(), 3u);
  // The counter counts nanoseconds; its second, measured against the clock
  // the ticks fall due on, is the same within ppm.
  const double tics = std::stod(rdtsc[0].substr(rdtsc[0].find("rdtsc: ") + 7));
  EXPECT_NEAR(tics, 1e9, 1e9 * 50e-6) << rdtsc[0];
  for (const char* said :
       {"Using high priority", "Using the default 60 for screen-rate", "Using the default 16 for screen-depth"})
    EXPECT_TRUE(contains(log, said)) << said;
  EXPECT_TRUE(lines_with(log, "error:").empty() && lines_with(log, "too late").empty()) << log;
  EXPECT_FALSE(contains(log, "report")) << "no report without the option";
  // Messages before the log file is open go to standard error.
  EXPECT_TRUE(contains(r.err, "files: unknown file: t.log")) << r.err;
}

TEST_F(Program, StartUpFailuresEndWith255AndTheirMessage) {
  std::string big = "null nummer=1 t0=10 t1=10\n\n";
  for (int i = 0; i < 3001; ++i) big += "null nummer=" + std::to_string(i + 1) + " t0=0\n";
  const std::vector<std::string> a = args();
  auto but = [&](size_t i, const std::string& w) {
    std::vector<std::string> b = a;
    return w.empty() ? (b.erase(b.begin() + i), b) : (b[i] = w, b);
  };
  struct {
    std::vector<std::string> args;
    std::vector<std::string> env;
    const char *cfg, *stim;
    bool on_err;  // the message goes to standard error, not the log
    std::string message;
  } cases[] = {
      {but(1, "-lst=missing.lst"), {}, "", "", true, "error: 0: missing.lst: No such file or directory"},
      {but(3, ""), {}, "", "", false, "No such file or directory"},  // no -dict: the default is not there
      {but(3, "-dict=missing.dict"), {}, "", "", false, "missing.dict: No such file or directory"},
      {args("missing.s"), {}, "", "", false, "missing.s: No such file or directory"},
      {a, {"DISPLAY="}, "", "", false, "allegro_init"},
      {a, {}, "screen-depth = 8\n", "", false, "Minimum screen depth: 15 bpp. Please adjust in Options/Screen."},
      {a, {}, "", big.c_str(), false, "stimuli/aanzahl: Cannot allocate memory"},
      {args_and({"-report=missing/rep"}), {}, "", "", false, "report: missing/rep: No such file or directory"},
      // The instruction page by its localised name, not in the file list.
      {args_and({"-locale=de"}), {}, "", "instr datei=anw.bmp\n", false, "anwde.bmp"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.message);
    dir.write("t.cfg", c.cfg);
    dir.write("t.s", *c.stim ? c.stim : "null nummer=1 t0=10 t1=10\n");
    const harness::Run r = run(c.args, c.env);
    EXPECT_EQ(r.status, 255) << r.err;
    EXPECT_TRUE(contains(c.on_err ? r.err : log, c.message)) << r.err << log;
    EXPECT_TRUE((c.on_err || lines_with(log, "error:").size() == 1u) && !contains(log, "Sorry")) << log;
    EXPECT_TRUE(results.empty() && !dir.exists("missing")) << results;
  }
}

TEST_F(Program, EmptyStimulusFileWarnsAndSucceeds) {
  dir.write("t.s", "\nnull nummer=1 t0=10 t1=10\n");
  const harness::Run r = run(args());
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(contains(log, "warning: ") && contains(log, "empty stimulus file: t.s")) << log;
}

TEST_F(Program, ConfigurationAndFileListRedirectFiles) {
  // An unknown type word, and "pause" without a blank offered whole to the
  // default stimulus: errors, and the run goes on.
  dir.write("real.s", "arrow nummer=1 t0=10 t1=10\npause\nnull nummer=2 t0=20 t1=10\n");
  dir.write("t.lst", "2\nt.s\nreal.s\nt.log\nmapped.log\n");
  dir.write("t.cfg", "screen-rate = abc\n");
  const harness::Run r = run(args());
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_FALSE(dir.exists("t.log"));
  const std::string mapped = dir.read("mapped.log");
  EXPECT_TRUE(contains(mapped, "Cannot parse screen-rate: Using the default 60")) << mapped;
  EXPECT_FALSE(contains(mapped, "empty stimulus file")) << mapped;
  EXPECT_TRUE(contains(mapped, "error: ") && contains(mapped, "pause\n: Invalid argument")) << mapped;
}

TEST_F(Program, DefaultFileNamesComeFromTheProgramPath) {
  dir.write("t.s", "null nummer=1 t0=10 t1=10\n");
  // No -lst: the list is looked for beside the program, as ixmod.lst, also
  // when the program was started by its bare name (through PATH); the error
  // names the option.
  const harness::Run r =
      harness::finish(harness::start(dir, {"-s=t.s", "-log=t.log", "-dict=en.dict", "-cfg=t.cfg"}, {}, "ixmod"));
  EXPECT_EQ(r.status, 255);
  EXPECT_TRUE(contains(r.err, std::string(IXMOD_BINARY) + ".lst: No such file or directory")) << r.err;
  EXPECT_TRUE(contains(r.err, "no file list: name one with -lst=FILE")) << r.err;
}

}  // namespace
