// The machine check, the stimulus-file check and what the program says
// about itself without a display.

#include "fixture.h"

using harness::contains;

namespace {

// The check's table: item -> fitness word (the last column).
std::map<std::string, std::string> fitness_of(const std::string& out) {
  std::map<std::string, std::string> rows;
  std::istringstream s(out);
  std::string line;
  while (std::getline(s, line)) {
    const size_t gap = line.find("  ");
    const size_t last = line.find_last_of(' ');
    if (gap == std::string::npos || last == std::string::npos || line[0] == ' ') continue;
    rows[line.substr(0, gap)] = line.substr(last + 1);
  }
  return rows;
}

struct Check : ProgramTest {
  harness::Run check(std::vector<std::string> extra, const std::string& sound = "null") {
    std::vector<std::string> a = {"-check", "-sound-device=" + sound, "-log=t.log", "-cfg=t.cfg"};
    a.insert(a.end(), extra.begin(), extra.end());
    return run(a);
  }
};

TEST_F(Check, TableAndStatusFollowThePort) {
  // The first row also checks the crossmodal example; the second has no
  // sound device.
  dir.write("t.lst", std::string("1\nanwen.bmp\n") + IXMOD_RESOURCES + "/anwen.bmp\n");
  struct { std::string device, lpt1, sound, sound_fit; std::vector<std::string> more; } cases[] = {
      {dir.path("lpt1"), "yes", "null", "yes",
       {std::string("-s=") + IXMOD_EXAMPLES + "/crossmodal.s", "-lst=t.lst", "-dict=en.dict", "-locale=en"}},
      {"/dev/parport9", "NO", "nothing-like-it", "NO", {}}};
  for (auto& c : cases) {
    c.more.push_back("-lpt1-device=" + c.device);
    const harness::Run r = check(c.more, c.sound);
    std::map<std::string, std::string> rows = fitness_of(r.out);
    for (const char* item : {"display", "refresh rate", "retrace", "Present", "compositor", "priority", "sound",
                             "sound latency", "LPT2", "font Arial", "font Courier New bold"})
      EXPECT_EQ(rows.count(item), std::string(item) != "sound latency" || c.sound_fit == "yes") << item << "\n" << r.out;
    EXPECT_EQ(rows["display"], "yes") << r.out;
    EXPECT_EQ(rows["sound"], c.sound_fit) << r.out;
    EXPECT_EQ(rows["LPT1 (in use)"], c.lpt1) << r.out;
    EXPECT_TRUE(contains(r.out, c.lpt1 == "yes" ? "simulated" : "/dev/parport9")) << r.out;
    // Status 1 exactly when a row says NO (an ordinary user's priority may).
    bool unfit = false;
    for (const auto& row : rows) unfit = unfit || row.second == "NO";
    EXPECT_EQ(r.status, unfit ? 1 : 0) << r.out;
    EXPECT_TRUE(contains(r.out, unfit ? "fit for the test: no" : "fit for the test: yes")) << r.out;
    EXPECT_FALSE(dir.exists("results.txt"));
    if (c.more.size() == 1) continue;
    EXPECT_EQ(rows["stimulus file"], "yes") << r.out;
    // The practice block: four trials of a tone and an arrow, the last arrow
    // at 11.5 s and its 2 s to answer.
    EXPECT_TRUE(contains(r.out, "block 2: 8 lines, 4 trials (8 evaluated stimuli), 13.5 s")) << r.out;
    EXPECT_EQ(harness::lines_with(r.out, "a page (no trials)").size(), 4u) << r.out;
  }
}

TEST_F(Check, StimulusFileLinesThatFailAreListedWithTheirLineNumbers) {
  dir.write("bad.s",
            "pfeil nummer=1 index=7 t0=100 t1=50 kritisch=1\n"
            "sound datei=nothere.wav t0=10\n"
            "null nummer=2 t0=300 t1=50\n"
            "---\n"
            "null nummer=3 t0=10 t1=20 kritisch=1\n"
            "shape t0=5 t1=10\n"
            "null nummer=4 t0=900 t1=20 kritisch=0\n"
            "word t0=5\n"
            "---\n"
            "info extra=Weiter.;\n");
  const harness::Run r = check({"-lpt1-device=" + dir.path("lpt1"), "-s=bad.s", "-lst=t.lst", "-dict=en.dict"});
  EXPECT_EQ(r.status, 1) << r.out;
  const std::string file = "bad.s";  // as named on the command line
  for (const std::string& want : {file + ":1: sbmp_bitmap: invalid index 7",
                                  file + ":2: nothere.wav: No such file or directory", file + ":8: wort: empty string"})
    EXPECT_TRUE(contains(r.out, want + "\n")) << want << "\n" << r.out;
  int faults = 0;
  for (const std::string& l : harness::lines_with(r.out, file + ":")) faults += l.rfind(file + ":", 0) == 0;
  EXPECT_EQ(faults, 3) << r.out;
  EXPECT_TRUE(contains(r.out, "block 1: 3 lines, not built")) << r.out;
  EXPECT_TRUE(contains(r.out, "block 3: 1 line, a page (no trials)")) << r.out;
  EXPECT_EQ(fitness_of(r.out)["stimulus file"], "NO");
}

TEST_F(Check, HelpAndVersionNeedNoDisplayAndNoFiles) {
  // The other spellings: unit Usage test.
  struct { const char *arg, *says; } cases[] = {{"-help", "-lst=FILE"}, {"--version", "ixmod 1."}};
  for (const auto& c : cases) {
    const harness::Run r = run({c.arg}, {"DISPLAY="});
    EXPECT_EQ(r.status, 0) << c.arg;
    EXPECT_TRUE(contains(r.out, c.says)) << c.arg << "\n" << r.out;
    EXPECT_TRUE(r.err.empty()) << c.arg << "\n" << r.err;
  }
}

}  // namespace
