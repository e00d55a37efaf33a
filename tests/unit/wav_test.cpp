// Sound stimuli with recorded voices and speaker relay: playing-until times,
// speaker selection, the preloaded table, the volume table, list files.

#include "engine/stimfile.h"
#include "engine/stimuli.h"
#include "engine/timing.h"
#include "input/taste.h"
#include "input/tastatur.h"
#include "sim_port.h"
#include "sound/swav.h"
#include "test_support.h"

namespace {
std::vector<std::string> calls;
int position = -1, free_voices = 1;

int note(const std::string& s, int v) { return calls.push_back(s + " " + std::to_string(v)), 0; }
unsigned long long due = 0;
long late_us = 0;
const wav_voice_ops kVoices{
    [](const SAMPLE* s) { return note("allocate", static_cast<int>(s->len)) + (free_voices-- > 0 ? 7 : -1); },
    [](int v, int vol) { note("volume " + std::to_string(v), vol); },
    [](int v, unsigned long long due_us) { return due = due_us, note("start", v), late_us; },
    [](int v) { note("stop", v); },
    [](int v) { note("deallocate", v); },
    [](int v) { note("release", v); },
    [](int) { return position; },
    // A device 9 ms behind the schedule; a sound started outside a block is
    // not placed.
    [](int) { return due ? due + 9000 : 0; },
    nullptr};

// A silent mono 8-bit WAV file.
std::string wav_file(const TempDir& d, const std::string& name, uint32_t rate, uint32_t frames) {
  std::string w = "RIFF....WAVEfmt ";
  for (auto [v, bytes] : std::vector<std::pair<uint32_t, int>>{
           {16, 4}, {1, 2}, {1, 2}, {rate, 4}, {rate, 4}, {1, 2}, {8, 2}, {0x61746164 /* "data" */, 4}, {frames, 4}})
    for (int i = 0; i < bytes; ++i) w += static_cast<char>(v >> (8 * i));
  return d.write(name, w + std::string(frames, '\x80'));
}

struct Sound : ::testing::Test {
  void SetUp() override {
    test_allegro(), fake_clock::start(), calls.clear(), due = 0, late_us = 0, position = -1, free_voices = 1;
    wav_voices(&kVoices), wav_reset();
  }
  void TearDown() override {
    swav_done(), wav_init(wav_none), lpt_reset(), wav_voices(nullptr), volume_init(), fake_clock::stop();
  }
  TempDir dir;
  LogCapture log{{dir.path("prog"), "-vol=" + dir.path("prog.vol")}};
  int err = 0;
};

TEST_F(Sound, FileNextToTheProgramPlaysAndRaisesPlayingUntilByItsLength) {
  for (auto [volume, handed] : std::vector<std::pair<int, int>>{{-1, 255}, {300, 255}, {-5, 0}, {80, 80}})
    EXPECT_EQ(wav_play_volume(volume), handed) << volume;
  wav_file(dir, "beside.wav", 8000, 800);
  wav w("datei=beside.wav speaker=3 nummer=4", err);
  EXPECT_EQ(std::make_tuple(err, w.speaker, w.volume, w.nummer, w.pstime()), std::make_tuple(0, 3, -1, 4u, 200L));
  ASSERT_FALSE(w.prepare() || w.prepare());  // again: the first sample is freed
  alleg_rest(1000 - fake_clock::test_ms());
  EXPECT_EQ(w.show(), 0);
  wav_playing_until(1100);  // never lowered
  EXPECT_TRUE(wav_playing() && wav_playing_until() >= 1110 && wav_playing_until() <= 1111) << wav_playing_until();
  EXPECT_EQ(calls, (std::vector<std::string>{"allocate 800", "volume 7 255", "start 7", "release 7"}));
  wav_stop_playing();
  EXPECT_FALSE(wav_playing());

  wav missing("datei=nirgends.wav", err);
  EXPECT_EQ(missing.pstime(), 0);
  EXPECT_TRUE(missing.prepare() == -1 && log.has("nirgends.wav") && missing.show() == -1 && log.has("wav_show/sample"));
}

TEST_F(Sound, AVoiceStartedPastItsDueFrameIsReportedWithItsTrial) {
  wav_file(dir, "t.wav", 8000, 80);
  late_us = 2500;
  wav w("datei=t.wav nummer=4", err);
  ASSERT_EQ(w.prepare(), 0);
  stim_show_due(1000000);
  EXPECT_EQ(w.show(), 0);
  stim_show_due(0);
  EXPECT_TRUE(log.has("trial 4: sound 2.5 ms late, started at once"));
  unsigned long long us = 0;
  EXPECT_TRUE(w.onset_us(us) == 1 && us == 1009000) << us;
}

TEST_F(Sound, SpeakerSelection) {
  for (auto [text, port] : std::vector<std::pair<const char*, int>>{
           {"lpt2", 2}, {"NONE", 0}, {"LPT3 lpt1", 1}, {"lpt1 none", 0}, {"com1", -1}, {"", -1}})
    EXPECT_EQ(wav_port_of(text), port) << text;
  SimPort p1(dir, 1), p2(dir, 2);
  Args ports({p1.arg()});
  wav w("speaker=3", err);
  EXPECT_TRUE(w.preshow() == -1 && log.has("speaker_select: wav_none"));
  ASSERT_EQ(wav_init(wav_lpt1), 0);
  EXPECT_FALSE(w.preshow() || w.cleanup());  // speaker 0 leaves the lines as they are
  w.speaker = 9;
  EXPECT_EQ(w.preshow(), -1);
  EXPECT_EQ(p1.data(), (std::vector<int>{0, 4}));  // all low at start-up, then D2
  EXPECT_EQ(wav_init(static_cast<wav_port_>(4)), -1);
  EXPECT_TRUE(w.preshow() == -1 && log.has("wav/wavport") && log.has("wav_port"));
  Args lpt2({"-speaker-selection=lpt2", p2.arg()});
  EXPECT_TRUE(wav_init() == 0 && p2.data() == std::vector<int>{0});
  Args bad({"-speaker-selection=com1"});
  EXPECT_EQ(wav_init(), -1);
}

TEST_F(Sound, VolumeTable) {
  dir.write("prog.vol", "2\r\n100\r\n200\r\n");
  ASSERT_EQ(volume_init(), 0);
  EXPECT_EQ(std::make_tuple(volume_default(0), volume_default(1), volume_default(2)), std::make_tuple(100, 200, 255));
  EXPECT_EQ(swav("index=1", err).volume, 200);
  EXPECT_TRUE(swav("index=1 volume=50", err).volume == 50 && err == 0);
  EXPECT_TRUE(swav("index=1000", err).volume == -1 && err == -1 && log.has("Volume-Default: Illegal index"));
  for (const char* bad : {"1000", "", "-2", "x"}) {
    dir.write("prog.vol", bad);
    EXPECT_EQ(volume_init(), -1) << bad;
  }
  EXPECT_TRUE(log.has("Volume-Init: Illegal number of volume entries."));
  std::remove(dir.path("prog.vol").c_str());
  EXPECT_TRUE(volume_init() == 0 && volume_default(0) == 255 && volume_default(999) == 255);
}

TEST_F(Sound, ListFilesAndPreloadedSoundsOnReservedVoices) {
  EXPECT_TRUE(swav_init() == -1 && log.has(dir.path("prog.snd") + ": No such file or directory"));
  const std::string a = wav_file(dir, "a.wav", 8000, 80), b = wav_file(dir, "b.wav", 8000, 160);
  for (auto [list, result, count, logged] : std::vector<std::tuple<std::string, int, int, std::string>>{
           {"1000 " + a, 0, 1000, "a.wav: not found in ressource"},
           {"1001 " + a, -1, 1000, ""},
           {"x", -1, 1000, ""},
           {"2 " + a + " " + dir.path("c.wav"), 1, 2, dir.path("c.wav")},
           {"3\r\n" + a + "\r\n" + b + "\r\n", 0, 3, ""}}) {  // the last name fills up
    dir.write("prog.snd", list);
    EXPECT_TRUE(swav_init() == result && swav_count() == count && log.has(logged)) << list.substr(0, 20);
  }
  swav s("index=2 volume=-1", err);
  ASSERT_EQ(s.prepare(), 0);
  EXPECT_EQ(s.t1, 30);  // the sound's length (b, filled up) and 10 ms
  EXPECT_FALSE(s.preshow() || s.show());
  position = 100;
  EXPECT_TRUE(s.playing() && !(s.hide() || s.playing()) && s.preshow() == -1 && log.has("no voice available"));
  EXPECT_EQ(s.cleanup(), 0);  // the table keeps its sample
  EXPECT_EQ(calls, (std::vector<std::string>{"allocate 160", "volume 7 255", "start 7", "stop 7", "deallocate 7",
                                             "allocate 160"}));
  EXPECT_EQ(wav_playing_until(), 0);

  free_voices = 1;
  swav forever("index=0 t1=-1 volume=9", err);
  ASSERT_EQ(forever.prepare(), 0);
  EXPECT_EQ(forever.t1, 0);
  EXPECT_FALSE(forever.preshow() || forever.cleanup());
  EXPECT_EQ(calls.back(), "release 7");
  EXPECT_TRUE(swav("index=5", err).prepare() == -1 && err == 0 && log.has("swav_get: invalid index (5)"));
}

TEST_F(Sound, TimingTraceTakesEachSoundsOnsetFromItsDueTime) {
  wav_file(dir, "tone.wav", 8000, 800);
  dir.write("prog.snd", "1 " + dir.path("tone.wav"));
  ASSERT_EQ(swav_init(), 0);
  free_voices = 2;  // one for each sound
  taste_fake([](int& code) { return code = 0, 0; });
  static const tastatur_device kNoKeys{[] { return 0; }, [](int) {}, [] { return 0; }, nullptr, nullptr};
  tastatur_fake(&kNoKeys);
  stim_registry_clear(), stim_register("wav", _wav), stim_register("swav", _swav), stim_register("probe", stim_make<stim>);
  char l1[] = "wav nummer=1 datei=tone.wav t0=300", l2[] = "probe nummer=2 t0=350 t1=20", l3[] = "swav nummer=3 index=0 t0=400";
  char* lines[] = {l1, l2, l3};
  timing_keep(true);
  stimuli block(3, lines, err);
  ASSERT_TRUE(err == 0 && block.prepare() == 0);
  EXPECT_EQ(block.run(-1), 0);
  int shows = 0;
  for (int i = 0; i < timing_count(); ++i) {
    const timing_record& r = timing_records()[i];
    const bool sound_show = r.action == 2 && r.nummer != 2;
    shows += sound_show;
    if (sound_show)  // the voice is placed from the show's due time; its onset is the device's
      EXPECT_TRUE(r.voice_us == r.due_us + 9000 && r.onset_us == r.voice_us) << r.nummer;
    else
      EXPECT_EQ(r.voice_us, 0u) << r.nummer << " " << r.action;
  }
  EXPECT_EQ(shows, 2);
  block.cleanup(), timing_keep(false), timing_clear(), taste_reset(), tastatur_fake(nullptr), stim_registry_clear();
}

}  // namespace
