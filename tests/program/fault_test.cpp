// Faults a lab meets around a run: no sound device, a picture, dictionary,
// port or log file that cannot be used, a damaged stimulus file, a block
// ended by the experimenter. Each ends with its own message and status, and
// what was written before it (log lines, results of blocks that ran) stays.

#include "fixture.h"

using harness::contains;
using harness::lines_with;

namespace {

// A block whose one trial goes unanswered and is saved as an omission.
const std::string kFirstBlock = "reak nummer=1 t0=100 t1=50 kritisch=1 maxreak=300 uv=first;\n\n";

struct Fault : ProgramTest {
  // Replaces the option word that starts with key ("-log=", "-res=").
  std::vector<std::string> replaced(std::vector<std::string> a, const std::string& key, const std::string& value) {
    for (std::string& w : a)
      if (w.rfind(key, 0) == 0) w = key + value;
    return a;
  }
  // The first block's results line (uv "first") is there.
  static bool has_first(const std::string& res) { return contains(res, " first "); }
  static bool root() { return geteuid() == 0; }
};

TEST_F(Fault, NoSoundDeviceStopsTheStartWithItsMessage) {
  dir.write("t.s", kFirstBlock);
  dir.write(".asoundrc", "pcm.!default { type hw card 99 }\n");
  // Autodetection tries only ALSA, so a machine with another sound system
  // (OSS, JACK) cannot make the start succeed after all.
  dir.write("allegro.cfg", "[sound]\ndigi_card = ALSA\n");
  const harness::Run r = run(args());
  EXPECT_EQ(r.status, 255) << r.err;
  EXPECT_TRUE(contains(r.err, "message box: install_sound: ")) << r.err;
  const std::vector<std::string> errors = lines_with(log, "error: ");
  ASSERT_EQ(errors.size(), 1u) << log;
  EXPECT_TRUE(contains(errors[0], ": install_sound: ")) << log;
  EXPECT_TRUE(contains(log, "Running on Linux")) << "the lines before the failure are kept";
  expect_log_well_formed();
  EXPECT_FALSE(contains(log, "screen-rate")) << "nothing after the sound start-up ran";
}

// A picture that is no picture or is cut short fails as a missing one does:
// unit Picture tests, with every loader.
TEST_F(Fault, PictureThatCannotBeLoadedStopsItsBlock) {
  struct Case { const char* what; std::function<void(const harness::Dir&)> make; };
  std::vector<Case> cases = {
      {"missing", [](const harness::Dir&) {}},
      {"a directory", [](const harness::Dir& d) { mkdir(d.path("p.bmp").c_str(), 0755); }},
  };
  // As root the file mode does not keep the program from reading.
  if (!root())
    cases.push_back({"unreadable", [&](const harness::Dir& d) {
                       d.write("p.bmp", read_text(std::string(IXMOD_RESOURCES) + "/anwde.bmp"));
                       chmod(d.path("p.bmp").c_str(), 0);
                     }});
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    harness::Dir d;
    for (const char* f : {"t.lst", "en.dict", "t.cfg"}) d.write(f, dir.read(f));
    d.write("t.s", kFirstBlock +
                       "bmp nummer=2 datei=p.bmp t0=100 t1=50 kritisch=1\n\n"
                       "reak nummer=3 t0=100 t1=50 kritisch=1 maxreak=300 uv=third;\n");
    c.make(d);
    std::vector<std::string> a = args();
    a.back() = "-lpt1-device=" + d.path("lpt1");
    const harness::Run r = harness::finish(harness::start(d, a), 60);
    EXPECT_EQ(r.signal, 0);
    const std::string l = d.read("t.log"), res = d.read("results.txt");
    EXPECT_EQ(r.status, 255) << l;
    EXPECT_TRUE(contains(l, "error: ") && contains(l, "p.bmp: No such file or directory")) << l;
    EXPECT_TRUE(has_first(res)) << res;
    EXPECT_FALSE(contains(res, "third")) << "later blocks do not run: " << res;
  }
}

struct FaultInPause : Fault {
  // Waits until the first block's results line is written, the moment the
  // second block starts. Times taken from there leave out start-up, which
  // a loaded machine (the suite's other runs, a sanitizer) stretches.
  long long first_block_ended(const harness::Started& p) {
    EXPECT_TRUE(x.wait_for_window(640, 480)) << "no window";
    const long long give_up = harness::steady_ns() + 30'000'000'000LL;
    while (!(dir.exists("results.txt") && has_first(dir.read("results.txt"))) && harness::steady_ns() < give_up &&
           kill(p.pid, 0) == 0)
      harness::sleep_until_ms(harness::steady_ns(), 5);
    return harness::steady_ns();
  }
  // Starts the program, then presses each key at its time (ms after the
  // second block started).
  harness::Run press_during(const std::vector<std::string>& a, const std::vector<std::pair<long, const char*>>& keys) {
    unlink(dir.path("results.txt").c_str());  // an earlier run's
    const harness::Started p = harness::start(dir, a);
    const long long t0 = first_block_ended(p);
    for (const auto& k : keys) {
      harness::sleep_until_ms(t0, k.first);
      x.press(k.second);
    }
    return finish(p);
  }
  // Starts the program and sends it sig ms after the second block started.
  harness::Run signal_after(int sig, long ms) {
    unlink(dir.path("results.txt").c_str());
    const harness::Started p = harness::start(dir, args());
    harness::sleep_until_ms(first_block_ended(p), ms);
    kill(p.pid, sig);
    return finish(p);
  }
  harness::X x;
};

// The second block's first trial is shown 100 ms after the block starts;
// its second trial would come 3 s later.
const std::string kSecondBlock =
    "null nummer=2 t0=100 t1=50 kritisch=1 uv=second;\n"
    "null nummer=3 t0=3000 t1=50 kritisch=1 uv=third;\n\n"
    "null nummer=4 t0=100 t1=50 kritisch=1 uv=fourth;\n";

TEST_F(FaultInPause, MissingDialogueTextEndsTheBlockAndKeepsItsResults) {
  dir.write("t.s", kFirstBlock + kSecondBlock);
  for (const char* dict : {"", "Please release the key.\n"}) {
    SCOPED_TRACE(std::string("dictionary \"") + dict + "\"");
    dir.write("en.dict", dict);
    const harness::Run r = press_during(args(), {{800, "s"}});
    EXPECT_EQ(r.status, 255) << log;
    EXPECT_TRUE(contains(log, "stopped (s pressed)")) << log;
    EXPECT_EQ(lines_with(log, "error: ").size(), 1u) << log;
    EXPECT_TRUE(contains(log, "dict: item invalid")) << log;
    EXPECT_EQ(contains(log, "Please release the key."), *dict != 0) << log;
    expect_log_well_formed();
    EXPECT_TRUE(has_first(results)) << results;
    EXPECT_TRUE(contains(results, "second")) << results;  // shown before the pause
    EXPECT_TRUE(!contains(results, "third") && !contains(results, "fourth")) << results;
  }
}

TEST_F(FaultInPause, ExitFromThePauseKeepsResultsLogReportAndTiming) {
  dir.write("t.s", kFirstBlock + kSecondBlock);
  const harness::Run r =
      press_during(args_and({"-report=rep", "-timing=timing.tsv"}), {{800, "s"}, {1200, "x"}});
  EXPECT_EQ(r.status, 255) << log;
  EXPECT_TRUE(contains(log, "report: rep/t-report.tsv")) << log;  // from the start-up
  EXPECT_TRUE(contains(log, "exit (x pressed)")) << log;
  expect_log_well_formed();
  EXPECT_TRUE(has_first(results) && contains(results, "second")) << results;
  EXPECT_FALSE(contains(results, "third") || contains(results, "fourth")) << results;
  // Both blocks in the report, as far as each went.
  const std::string report = dir.read("rep/t-report.tsv");
  EXPECT_TRUE(contains(report, "\n1\tfirst\t1\t0\t0\t0\t1\t")) << report;
  EXPECT_TRUE(contains(report, "\n2\tsecond\t1\t0\t0\t0\t1\t") && !contains(report, "third")) << report;
  // The timing trace: the shows of trials 1 and 2, none of the trials after.
  std::vector<std::string> shown;
  for (const auto& c : timing_shows(dir.read("timing.tsv"))) shown.push_back(c[0] + "/" + c[1]);
  EXPECT_EQ(shown, (std::vector<std::string>{"0/1", "1/2"})) << dir.read("timing.tsv");
}

TEST_F(FaultInPause, ASignalEndsTheTestAsTheExitKeyDoes) {
  dir.write("t.s", kFirstBlock + kSecondBlock);
  // A shutdown and a Ctrl-C during the second block; a closed terminal below.
  for (int sig : {SIGTERM, SIGINT}) {
    SCOPED_TRACE(sig);
    const harness::Run r = signal_after(sig, 800);
    EXPECT_EQ(r.status, 255) << r.err;
    const std::string n = std::to_string(sig);
    EXPECT_TRUE(contains(log, "stopped (signal " + n + ")") && contains(log, "exit (signal " + n + ")")) << log;
    expect_log_well_formed();
    EXPECT_TRUE(has_first(results) && contains(results, "second") && !contains(results, "third")) << results << log;
  }
  // On an instruction page, which waits for a key.
  dir.write("t.s", kFirstBlock + "instr datei=" + std::string(IXMOD_RESOURCES) + "/anwde.bmp\n");
  const harness::Run r = signal_after(SIGHUP, 300);
  EXPECT_EQ(r.status, 255) << r.err;
  EXPECT_TRUE(contains(log, "exit (signal " + std::to_string(SIGHUP) + ")")) << log;
  EXPECT_TRUE(has_first(results)) << results;
}

TEST_F(Fault, PortFileThatCannotBeOpenedLeavesTheRunWithoutOutputs) {
  dir.write("t.s", kFirstBlock + "reak nummer=2 t0=100 t1=50 kritisch=1 maxreak=300 trigger=5 uv=second;\n");
  struct Case {
    std::string device, message;
    std::function<void()> make;
  };
  // A read-only file stops only a program without root's rights; the other
  // two stop root as well.
  std::vector<Case> cases = {
      {dir.path("t.cfg") + "/lpt1", dir.path("t.cfg") + "/lpt1: Not a directory", [] {}},
      {dir.path("lpt1"), dir.path("lpt1.trace") + ": Is a directory",
       [&] { mkdir(dir.path("lpt1.trace").c_str(), 0755); }},
  };
  if (!root())
    cases.push_back({dir.path("ro"), dir.path("ro") + ": Permission denied", [&] {
                       dir.write("ro", std::string(4, '\0'));
                       chmod(dir.path("ro").c_str(), 0444);
                     }});
  for (const Case& c : cases) {
    SCOPED_TRACE(c.device);
    c.make();
    const harness::Run r = run(replaced(args(), "-lpt1-device=", c.device));
    EXPECT_EQ(r.status, 0) << log;
    EXPECT_TRUE(contains(log, "error: ") && contains(log, c.message)) << log;
    for (const char* w : {"no pen output", "no LED output", "no trigger output"})
      EXPECT_EQ(lines_with(log, w).size(), 1u) << w << "\n" << log;
    EXPECT_TRUE(has_first(results) && contains(results, "second")) << results;
    expect_log_well_formed();
  }
}

TEST_F(Fault, OutputsThatCannotBeWrittenLoseNothingAndEndWith255) {
  dir.write("t.s", kFirstBlock + "reak nummer=2 t0=100 t1=50 kritisch=1 maxreak=300 uv=second;\n");
  struct Case {
    std::string option, value;
    std::string on_err;  // what the run leaves on standard error
    int status;
  };
  const std::string full = "/dev/full: No space left on device";
  const std::vector<Case> cases = {
      // Not created: the log stays on standard error, the test runs.
      {"-log=", "nodir/t.log", "Running on Linux", 0},
      // Created but full: reported there, and the lines follow.
      {"-log=", "/dev/full", full, 255},
      // Results written after each block into a full file: reported, and
      // they follow the log onto standard error.
      {"-res=", "/dev/full", full, 255},
      {"-timing=", "/dev/full", full, 255},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.option + c.value);
    std::vector<std::string> a = replaced(args(), c.option, c.value);
    if (c.option == "-timing=") a.push_back(c.option + c.value);
    const harness::Run r = run(a);
    EXPECT_EQ(r.status, c.status) << r.err;
    EXPECT_TRUE(contains(r.err, c.on_err)) << r.err;
    const std::string all_log = c.option == "-log=" ? r.err : log;
    EXPECT_TRUE(contains(all_log, "Running on Linux") && contains(all_log, "rdtsc:")) << all_log;
    const std::string res = c.option == "-res=" ? r.err : results;
    EXPECT_TRUE(has_first(res) && contains(res, "second")) << res;
    // A full device but the log's own is reported in the log.
    EXPECT_TRUE(c.value != "/dev/full" || c.option == "-log=" || (contains(log, "error: ") && contains(log, full)))
        << log;
    if (c.option == "-res=") {
      EXPECT_EQ(lines_with(log, "Results on standard error: /dev/full").size(), 1u) << log;
      EXPECT_EQ(lines_with(r.err, " first ").size(), 1u) << r.err;
    }
  }
  EXPECT_FALSE(dir.exists("nodir"));
}

TEST_F(Fault, DamagedStimulusFileIsReadInPiecesAndStopsAtTheCutName) {
  const std::string nul(1, '\0');
  dir.write("t.s", kFirstBlock +
                       "reak nummer=2 t0=100 t1=50 kritisch=1 maxreak=300 uv=" + std::string(10000, 'u') + ";\n" +
                       "null nummer=3 t0=200 t1=50 kri" + nul + "tisch=1 " + std::string(10000, 'y') + "\n" +
                       "null nummer=4 t0=" + nul + "300 t1=50\n\n" +
                       "bmp nummer=5 t0=100 t1=50 kritisch=1 datei=" + std::string(10000, 'p') + "\n\n" +
                       "reak nummer=6 t0=100 t1=50 kritisch=1 maxreak=300 uv=sixth;\n");
  const harness::Run r = run(args());
  EXPECT_EQ(r.status, 255) << r.err;
  EXPECT_FALSE(contains(r.err, "Sanitizer") || contains(r.err, "runtime error")) << r.err;
  // A long line is read as pieces; a piece without a blank is refused, its
  // text cut in the log.
  EXPECT_GE(lines_with(log, "error: ").size(), 9u) << log.substr(0, 3000);
  for (const std::string& l : lines_with(log, ": ")) EXPECT_LE(l.size(), 1020u) << l.substr(0, 100);
  EXPECT_EQ(log.find(nul), std::string::npos);
  // The second block runs, its uv cut to 196 characters; the picture's name,
  // cut as well, is not found and ends the test there.
  EXPECT_TRUE(has_first(results) && contains(results, std::string(196, 'u') + " ")) << results;
  EXPECT_FALSE(contains(results, std::string(197, 'u'))) << results;
  EXPECT_TRUE(contains(log, "pp: No such file or directory")) << log.substr(log.size() > 3000 ? log.size() - 3000 : 0);
  EXPECT_FALSE(contains(results, "sixth")) << results;
}

}  // namespace
