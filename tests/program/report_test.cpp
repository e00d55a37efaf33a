// The session report of a whole run: a scripted participant gives known
// outcomes, the report is rewritten after each block and kept when the
// experimenter ends the test.

#include "fixture.h"

using harness::contains;

namespace {

struct Report : ProgramTest {
  // Rows of the TSV by "block label", the counts from trials to anticipation.
  std::map<std::string, std::string> rows(const std::string& tsv) {
    std::map<std::string, std::string> out;
    std::istringstream s(tsv);
    std::string line;
    std::getline(s, line);
    EXPECT_EQ(line.rfind("block\tlabel\ttrials\tcorrect\twrong_key\tfalse_alarm\tomission\twithheld\tanticipation\t", 0),
              0u)
        << line;
    while (std::getline(s, line)) {
      const std::vector<std::string> cells = ::cells(line);
      EXPECT_EQ(cells.size(), 12u) << line;
      if (cells.size() < 12) continue;
      std::string counts;
      for (size_t i = 2; i < 9; ++i) counts += (i > 2 ? " " : "") + cells[i];
      out[cells[0] + " " + cells[1]] = counts;
    }
    return out;
  }
  harness::X x;
};

TEST_F(Report, CountsWhatTheParticipantDidAndSurvivesAnEndedBlock) {
  dir.write("t.lst", std::string("1\nanwde.bmp\n") + IXMOD_RESOURCES + "/anwde.bmp\n");
  dir.write("t.s",
            "instr datei=anw.bmp\n"
            "---\n"
            "pfeil nummer=1 index=0 t0=500 t1=1000 kritisch=1 uv=passt;\n"
            "pfeil nummer=2 index=0 t0=2600 t1=1000 kritisch=0 uv=anders;\n"
            "pfeil nummer=3 index=0 t0=4700 t1=1000 kritisch=1 uv=passt;\n"
            "pfeil nummer=4 index=0 t0=6800 t1=1000 kritisch=1 uv=passt;\n"
            "reak nummer=5 t0=8900 t1=1000 kritisch=1 minreak=600 maxreak=1500 uv=spät & <früh>;\n"
            "---\n"
            "pfeil nummer=6 index=0 t0=1000 t1=2500 kritisch=1 uv=passt;\n"
            "pfeil nummer=7 index=0 t0=5000 t1=1000 kritisch=1 uv=passt;\n");
  const harness::Started p = harness::start(dir, args_and({"-locale=de", "-report=rep"}));
  ASSERT_TRUE(x.wait_for_window(640, 480));
  harness::sleep_until_ms(harness::steady_ns(), 500);
  x.press("space");
  const long long b = harness::steady_ns();  // block 2 starts now
  harness::sleep_until_ms(b, 1100);
  x.press("1");  // correct
  harness::sleep_until_ms(b, 3200);
  x.press("1");  // false alarm
  harness::sleep_until_ms(b, 5300);
  x.press("2");  // wrong key; trial 4 goes unanswered
  harness::sleep_until_ms(b, 9150);
  x.press("1");  // before minreak: ignored, an anticipation
  harness::sleep_until_ms(b, 10000);
  x.press("1");  // correct
  // Block 2 ends 100 ms after the reak window (10400); block 3 starts then.
  harness::sleep_until_ms(b, 11000);
  EXPECT_TRUE(contains(dir.read("rep/t-report.tsv"), "2\t*\t5\t")) << "written after block 2";
  harness::sleep_until_ms(b, 12000);
  x.press("1");  // trial 6, correct
  harness::sleep_until_ms(b, 13000);
  x.press("s");
  harness::sleep_until_ms(b, 13800);
  x.press("x");  // trial 7 never comes
  const harness::Run r = finish(p);
  EXPECT_EQ(r.status, 255) << log;

  ASSERT_TRUE(dir.exists("rep/t-report.tsv")) << log;
  const std::map<std::string, std::string> got = rows(dir.read("rep/t-report.tsv"));
  // trials correct wrong_key false_alarm omission withheld anticipation;
  // block 1, the instruction page, has no row.
  const std::map<std::string, std::string> want = {
      {"2 passt", "3 1 1 0 1 0 0"},
      {"2 anders", "1 0 0 1 0 0 0"},
      {"2 spät & <früh>", "1 1 0 0 0 0 1"},
      {"2 *", "5 2 1 1 1 0 1"},
      {"3 passt", "1 1 0 0 0 0 0"},
      {"3 *", "1 1 0 0 0 0 0"},
  };
  EXPECT_EQ(got, want) << dir.read("rep/t-report.tsv") << log;
  // The results lines "nummer uv reaktion reakzeit": the key pressed (0 for
  // none), the time from the arrow's onset; each press came 600 ms after
  // its arrow was due, so the three times agree (the block itself starts
  // some time after the key that ended the page).
  std::map<int, std::pair<int, long>> saved;
  for (const Saved& v : saved_lines(results)) saved[v.nummer] = {v.reaktion, v.reakzeit};
  for (int n : {2, 3})
    EXPECT_TRUE(saved[1].second > 100 && saved[1].second <= 650 && std::labs(saved[n].second - saved[1].second) <= 60)
        << results;
  EXPECT_TRUE(saved[1].first == 1 && saved[2].first == 1 && saved[3].first == 2 && saved[4].first == 0) << results;
  const std::string html = dir.read("rep/t-report.html");
  // Its labels escaped (what else the page says: unit Report tests).
  EXPECT_TRUE(contains(html, "<h3>spät &amp; &lt;früh&gt;</h3>")) << html;
  EXPECT_FALSE(dir.exists("rep/t-report.tsv.tmp"));
}

}  // namespace
