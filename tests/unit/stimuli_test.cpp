#include <typeindex>

#include "engine/stim.h"
#include "engine/stimfile.h"
#include "engine/stimuli.h"
#include "engine/reak.h"
#include "screens/back.h"
#include "screens/info.h"
#include "screens/instrukt.h"
#include "screens/led.h"
#include "screens/null.h"
#include "screens/pause.h"
#include "screens/stift.h"
#include "sound/swav.h"
#include "visual/clock.h"
#include "visual/emf.h"
#include "visual/sfli.h"
#include "visual/shape.h"
#include "visual/vbmp.h"
#include "visual/wheel.h"
#include "visual/wort.h"
#include "tests/unit/test_support.h"

namespace {
// Empty registry, store and block order, and the log captured.
struct Engine : ::testing::Test {
  void SetUp() override { TearDown(); }
  void TearDown() override { stimfile_done(), stim_registry_clear(), stimuli_reset_order(); }
  LogCapture log;
  int err = -2;
};

// Reads text as the stimulus file "test.s"; the sizes of its blocks.
std::vector<int> load_stimfile(std::string text) {
  FILE* f = fmemopen(text.data(), text.size(), "r");
  stimfile_read(f, "test.s");
  fclose(f);
  std::vector<int> sizes;
  for (int b = 0; b < stimfile_anzahl(); ++b) sizes.push_back(stimfile_index(b));
  return sizes;
}

std::string seen;  // the text the last factory got
// A factory's work: a stimulus numbered tag, or none for tag 0.
stim* made(const char* text, unsigned tag) {
  seen = text;
  return tag ? new stim(tag, nullptr, nullptr, 0, -1, 0, 0) : nullptr;
}
// "tag:text": the tag of the factory that built line (0 for none), the text it got.
std::string built(const char* line) {
  seen.clear();
  std::unique_ptr<stim> s(_stimulus(line));
  return std::to_string(s ? s->nummer : 0) + ":" + seen;
}
}  // namespace

TEST_F(Engine, RegistryTriesTheLatestRecordFirstThenEarlierThenTheDefault) {
  stim_register("bmp", [](const char* a) { return made(a, 1); });
  stim_register("bmp", [](const char* a) { return made(a, 2); });
  EXPECT_EQ(built("bmp   datei=a.bmp t0=5\n"), "2:datei=a.bmp t0=5\n");
  stim_factory failing = [](const char* a) { return made(a, 0); };
  stim_register("bmp", failing);
  EXPECT_EQ(built("bmp t0=1"), "2:t0=1");  // a failing record lets earlier ones try
  EXPECT_TRUE(built("BMP t0=1") == "0:" && log.has("error: 0: BMP t0=1: Invalid argument\n"));
  stim_register("wav", failing);
  stim_default([](const char* a) { return made(a, 99); });
  EXPECT_EQ(built("wav t0=1"), "99:wav t0=1");  // retried whole as a default stimulus
  EXPECT_EQ(built("pause\n"), "99:pause\n");   // no blank: the whole line goes to the default
}

// Every type word builds its own class from a typical line.
TEST_F(Engine, EveryTypeWordBuildsItsClass) {
  test_allegro();
  Args args({"-dict=unused"});
  ASSERT_EQ(stimuli_init(log.dir.write("d.txt", "a\nb\n").c_str()), 0);
  const struct { const char* line; std::type_index type; } types[] = {
      {"bmp t0=5 datei=a.bmp", typeid(bmp)},          {"emf t0=5 w=0.5 h=0.5", typeid(emf)},
      {"sbmp index=0", typeid(sbmp)},                 {"image index=0", typeid(sbmp)},
      {"vbmp index=1", typeid(vbmp)},                 {"semf index=0", typeid(semf)},
      {"word string=Ab", typeid(wort)},               {"wav datei=a.wav", typeid(wav)},
      {"swav index=0", typeid(swav)},                 {"sound index=1", typeid(swav)},
      {"back datei=b.bmp", typeid(background)},       {"instr datei=a.bmp", typeid(instrukt)},
      {"info extra=x", typeid(info)},                 {"null t0=1", typeid(null)},
      {"pause t0=0", typeid(class pause)},                  {"fli datei=f.txt", typeid(fli)},
      {"sfli index=0", typeid(sfli)},                 {"film index=0", typeid(sfli)},
      {"stift index=1", typeid(stift)},               {"led index=2", typeid(led)},
      {"reak kritisch=1", typeid(reak)},              {"shape shape=1", typeid(shape)},
      {"clock dauer=2000", typeid(cclock)},           {"cbmp index=0", typeid(cbmp)},
      {"cwav index=0", typeid(cwav)},                 {"cled index=1", typeid(cled)},
      {"cstift index=1", typeid(cstift)},             {"wheel start=5", typeid(cwheel)}};
  for (const auto& c : types) {
    std::unique_ptr<stim> s(_stimulus(c.line));
    ASSERT_NE(s, nullptr) << c.line;
    EXPECT_EQ(std::type_index(typeid(*s)), c.type) << c.line;
  }
  stimuli_done();
}

// The locale goes before the extension of the file's own name.
TEST_F(Engine, InstructionPageNamesTakeTheLocale) {
  instrukt_init("de");
  for (auto [name, localised] : std::vector<std::pair<std::string, std::string>>{
           {"anw.bmp", "anwde.bmp"}, {"v1.2/anw.pcx", "v1.2/anwde.pcx"}, {"v1.2/anw", "v1.2/anwde."}})
    EXPECT_STREQ(instrukt(name.c_str()).datei, localised.c_str()) << name;
  instrukt_init(nullptr);
}

TEST_F(Engine, StimulusFileSeparatorsAndPieces) {
  using V = std::vector<int>;
  ASSERT_EQ(load_stimfile("null t0=1\nnull t0=2\n\nnull t0=3\n---\nnull t0=4\nnull t0=5"), (V{2, 1, 2}));
  EXPECT_STREQ(stimfile_lines(0, 1), "null t0=2\n");
  EXPECT_EQ(load_stimfile("null t0=1\nnull\nabcde\nabcd\nabcde\n"), (V{1, 1, 1}));  // 6 chars make a line
  EXPECT_EQ(load_stimfile("null t0=1\n\n\nnull t0=2\n"), V{1});  // two separators end the file
  EXPECT_TRUE(load_stimfile("\nnull t0=1\n").empty() && log.has("warning: 0: empty stimulus file: test.s\n"));
  const std::string piece(999, 'x');
  ASSERT_EQ(load_stimfile(piece + piece + "yyyyy\n"), V{3});
  EXPECT_EQ(std::string(stimfile_lines(0, 0)), piece);
  EXPECT_EQ(load_stimfile(piece + "zzz\nnull t0=1\n"), (V{1, 1}));  // a short tail separates
  // A file saved on Windows reads the same: "null\r\n" is a short line too.
  ASSERT_EQ(load_stimfile("null t0=1\r\nnull\r\nnull t0=2\r\n"), (V{1, 1}));
  EXPECT_STREQ(stimfile_lines(1, 0), "null t0=2\n");
}

TEST_F(Engine, BlocksFromLinesOrFromTheStore) {
  stim_register("null", _null);
  char good[] = "null nummer=1\n", empty[] = "", newline[] = "\n", unknown[] = "bmp x=1\n";
  for (char* second : {good, static_cast<char*>(nullptr), empty, newline, unknown}) {
    char* lines[] = {good, second};
    stimuli b(2, lines, err);
    EXPECT_EQ(err, second == good ? 0 : -1) << (second ? second : "null");
    EXPECT_TRUE(second != good || (b.anzahl() == 2 && b.stimulus(1) && !b.stimulus(2)));
  }
  EXPECT_TRUE(log.has("error: 0: ---: Invalid argument\n"));
  // From the store: blocks in file order, at most 3000 stimuli each.
  std::string text;
  for (int i = 0; i < 3000; ++i) text += "null nummer=1\n";
  load_stimfile(text + "\n" + text + "null nummer=2\n\nnull nummer=3\n");
  const struct { int err, anzahl; unsigned last; const char* logged; } blocks[] = {
      {0, 3000, 1, ""}, {-1, 0, 0, "error: 0: stimuli/aanzahl: Cannot allocate memory\n"}, {0, 1, 3, ""},
      {-1, 0, 0, "error: 0: stimulus index overflow: Invalid argument\n"}};
  for (const auto& want : blocks) {
    stimuli b(err);
    const stim* last = b.stimulus(b.anzahl() - 1);
    EXPECT_TRUE(err == want.err && b.anzahl() == want.anzahl && (last ? last->nummer : 0) == want.last &&
                log.has(want.logged)) << want.logged;
  }
  stimuli(3, "dummy", err);
  EXPECT_TRUE(log.has("error: 0: stimuli/aindex: Cannot allocate memory\n"));
}

namespace {
// A stimulus with settable corrections that counts its hooks.
struct Timed : stim {
  Timed(long t0_, long t1_, long ps = 0, long sh = 0, long hd = 0)
      : stim(1, nullptr, nullptr, 0, -1, t0_, t1_), ps_(ps), sh_(sh), hd_(hd) {}
  long pstime() const override { return ps_; }
  long showtime() const override { return sh_; }
  long hidetime() const override { return hd_; }
  int skip() override { return skip_; }
  int with_trigger() const override { return trigger_; }
  int prepare() override { return ++prepared, fail_prepare; }
  int cleanup() override { return ++cleaned; }
  long ps_, sh_, hd_;
  int skip_ = 0, trigger_ = 0, fail_prepare = 0, prepared = 0, cleaned = 0;
};
}  // namespace

TEST(Schedule, SortedByDueTimeThenPreshowShowHide) {
  int err = -1, n = 0;
  stimuli b(5, err);
  Timed* t[] = {new Timed(100, 200, 30, 10, 5), new Timed(120, 0, 30), new Timed(40, 50), new Timed(0, 100),
                new Timed(10, 100)};
  t[3]->skip_ = t[4]->trigger_ = 1;
  for (int i = 0; i < 5; ++i) b.stimulus(i, t[i]);
  std::string plan;  // "index:type@due" words
  for (const aktion *a = b.schedule(1000, n), *end = a + n; a != end; ++a)
    plan += std::to_string(a->index) + ":" + std::to_string(a->type) + "@" + std::to_string(a->showtime()) + " ";
  // At 1090 the preshow of 1, the show of 0 and the hide of 2 meet. No hide
  // for t1 = 0 (1) or a triggered stimulus (4), nothing for a skipped one (3).
  EXPECT_EQ(plan, "4:1@1010 4:2@1010 2:1@1040 2:2@1040 0:1@1070 1:1@1090 0:2@1090 2:3@1090 1:2@1120 0:3@1295 ");
  // The skipped stimulus still takes part in the block's other operations.
  EXPECT_TRUE(b.prepare() == 0 && t[3]->prepared == 1);
  t[1]->fail_prepare = 1;
  EXPECT_TRUE(b.prepare() == 1 && t[2]->prepared == 1);  // the first failure ends the round
  EXPECT_EQ(b.cleanup(), 5);
}
