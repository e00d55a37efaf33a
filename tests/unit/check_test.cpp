// The machine check's decisions and table, the usage words, and the line
// numbers the stimulus file keeps for its messages.
#include "test_support.h"

#include "driver/check.h"
#include "driver/usage.h"
#include "engine/stimfile.h"
#include "platform/priority.h"

TEST(Check, PortNamedByAConfigurationText) {
  const struct { const char* text; char kind; int number; } cases[] = {
      {"LPT2", 'L', 2}, {"lpt1 lpt3", 'L', 3},  {"lpt4", 0, 0}, {"COM2", 'C', 2},  // the last found wins
      {"com12", 'C', 12}, {"com", 0, 0}, {"", 0, 0}, {"comx com3", 'C', 3}, {nullptr, 0, 0},
  };
  for (const auto& c : cases) {
    const port_ref p = check_port_ref(c.text);
    EXPECT_EQ(p.kind, c.kind) << (c.text ? c.text : "null");
    EXPECT_EQ(p.number, c.number) << (c.text ? c.text : "null");
  }
}

TEST(Check, FitnessOfPriorityAndRetrace) {
  for (auto [priority, fit] : std::vector<std::pair<unsigned, fitness>>{{REALTIME_PRIORITY_CLASS, fitness::yes},
       {HIGH_PRIORITY_CLASS, fitness::yes}, {NORMAL_PRIORITY_CLASS, fitness::no}, {IDLE_PRIORITY_CLASS, fitness::no}})
    EXPECT_EQ(check_priority_fit(priority), fit) << priority;
  const struct { const char* source; fitness fit; } cases[] = {{"drm", fitness::yes}, {"present", fitness::yes},
      {"simulated", fitness::warn}, {"", fitness::no}, {nullptr, fitness::no}};
  for (const auto& c : cases) EXPECT_EQ(check_retrace_fit(c.source), c.fit) << (c.source ? c.source : "null");
}

TEST(Check, OnlyAnUnfitRowFailsAndTheTableAlignsItsColumns) {
  std::vector<check_row> rows = {{"display", "1024 x 768, 16 bit", fitness::yes},
                                 {"retrace", "simulated", fitness::warn},
                                 {"Present", "no", fitness::info}};
  EXPECT_EQ(check_status(rows), 0);
  rows.push_back({"LPT1 (in use)", "cannot open", fitness::no});
  EXPECT_EQ(check_status(rows), 1);
  EXPECT_EQ(check_table(rows),
            "item           found               fit\n"
            "display        1024 x 768, 16 bit  yes\n"
            "retrace        simulated           warn\n"
            "Present        no                  -\n"
            "LPT1 (in use)  cannot open         NO\n");
}

TEST(Check, BlockLineOfOneTrial) {
  // The plural forms, pages and blocks not built: program Check tests.
  EXPECT_EQ(check_block_line(3, {2, 1, 1, 250, true}), "block 3: 2 lines, 1 trial (1 evaluated stimulus), 0.2 s");
}

TEST(Usage, WordsThatAskForUsageOrVersion) {
  const struct { std::vector<const char*> args; int want; } cases[] = {
      {{"ixmod", "-help"}, 1},           {{"ixmod", "--help"}, 1},    {{"ixmod", "-s=a.s", "-h"}, 1},
      {{"ixmod", "-version"}, 2},        {{"ixmod", "--version"}, 2}, {{"ixmod", "-helpme"}, 0},
      {{"ixmod", "-s=-help"}, 0},        {{"-help"}, 0},  // the program's own name is no option
  };
  for (const auto& c : cases)
    EXPECT_EQ(usage_wanted(static_cast<int>(c.args.size()), c.args.data()), c.want) << c.args.back();
}

TEST(Stimfile, LinesKeepTheirNumberInTheFile) {
  // Blocks separated by short lines; a line longer than 999 characters is
  // read in two pieces that both start on its line.
  std::string text = "null nummer=1 t0=1\nnull nummer=2 t0=2\n---\nnull nummer=3 t0=3 " + std::string(1100, 'x') +
                     "\nnull nummer=4 t0=4\n\nnull nummer=5 t0=5\n";
  FILE* f = fmemopen(text.data(), text.size(), "r");
  stimfile_read(f, "numbers.s");
  fclose(f);
  ASSERT_EQ(stimfile_anzahl(), 3);
  std::vector<std::vector<int>> got;
  for (int b = 0; b < stimfile_anzahl(); ++b) {
    got.emplace_back();
    for (int i = 0; i < stimfile_index(b); ++i) got.back().push_back(stimfile_line_number(b, i));
  }
  EXPECT_EQ(got, (std::vector<std::vector<int>>{{1, 2}, {4, 4, 5}, {7}}));
  EXPECT_STREQ(stimfile_path(), "numbers.s");
  stimfile_done();
}
