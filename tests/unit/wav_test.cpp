// Sound stimuli with recorded voices and speaker relay: playing-until times,
// speaker selection, the preloaded table, the volume table, list files.
#include <allegro.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "fake_clock.h"
#include "platform/datafile.h"
#include "sound/swav.h"
#include "test_support.h"

namespace {
std::vector<std::string> calls;
int position = -1;
int free_voices = 1;

int note(const std::string& s, int v = -2) {
  calls.push_back(v == -2 ? s : s + " " + std::to_string(v));
  return 0;
}
int rec_play(const SAMPLE*, int vol, int pan, int freq, int loop) {
  return note("play " + std::to_string(vol) + " " + std::to_string(pan) + " " + std::to_string(freq), loop);
}
int rec_allocate(const SAMPLE* s) {
  note("allocate", static_cast<int>(s->len));
  return free_voices-- > 0 ? 7 : -1;
}
void rec_volume(int v, int vol) { note("volume " + std::to_string(v), vol); }
const wav_voice_ops kVoices{rec_play,
                            rec_allocate,
                            rec_volume,
                            [](int v) { note("start", v); },
                            [](int v) { note("stop", v); },
                            [](int v) { note("deallocate", v); },
                            [](int v) { note("release", v); },
                            [](int) { return position; }};

int relay_init(int lpt) { return note("lpt_init", lpt); }
int relay_set(int lpt, unsigned char b) { return note("lpt " + std::to_string(lpt), b); }
const wav_relay_ops kRelay{relay_init, relay_set};

// A silent mono 8-bit WAV file.
std::string wav_file(const TempDir& d, const std::string& name, uint32_t rate, uint32_t frames) {
  std::string w = "RIFF....WAVEfmt ";
  auto put = [&w](uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) w += static_cast<char>(v >> (8 * i));
  };
  put(16, 4), put(1, 2), put(1, 2), put(rate, 4), put(rate, 4), put(1, 2), put(8, 2);
  w += "data";
  put(frames, 4);
  w += std::string(frames, '\x80');
  return d.write(name, w);
}

class Sound : public ::testing::Test {
 protected:
  void SetUp() override {
    test_allegro();
    fake_clock::start();
    calls.clear();
    position = -1;
    free_voices = 1;
    wav_voices(&kVoices);
    wav_relay(&kRelay);
    wav_reset();
  }
  void TearDown() override {
    swav_done();
    wav_init(wav_none);
    wav_relay(nullptr);
    wav_voices(nullptr);
    volume_init();
    fake_clock::stop();
  }
  // A table of the given sound files, loaded by absolute path.
  int table(std::vector<std::string> paths) {
    std::vector<char*> names;
    for (std::string& p : paths) names.push_back(p.data());
    return swav_init(static_cast<int>(names.size()), names.data());
  }
  TempDir dir;
  LogCapture log{{dir.path("prog"), "-vol=" + dir.path("prog.vol")}};
};

TEST_F(Sound, ShowRaisesPlayingUntilBySampleLength) {
  alleg_rest(1000 - fake_clock::test_ms());
  wav w(1, "tone.wav", nullptr, 0, -1, 0, 0, -1);
  w.sample = create_sample(16, 0, 44100, 22050);
  EXPECT_EQ(w.show(), 0);
  EXPECT_GE(wav_playing_until(), 1510);
  EXPECT_LE(wav_playing_until(), 1511);
  EXPECT_TRUE(wav_playing());
  wav_playing_until(1200);
  EXPECT_GE(wav_playing_until(), 1510);  // never lowered
  w.volume = 0;
  EXPECT_EQ(w.show(), 0);
  EXPECT_EQ(calls, (std::vector<std::string>{"play 255 128 1000 0", "play 0 128 1000 0"}));
  wav_stop_playing();
  EXPECT_FALSE(wav_playing());

  wav none(1, nullptr, nullptr, 0, -1, 0, 0, -1);
  EXPECT_EQ(none.show(), -1);
  EXPECT_TRUE(log.has("wav_show/sample"));
}

TEST_F(Sound, PrepareFindsTheFileNextToTheProgramAndReportsAMissingOne) {
  wav_file(dir, "beside.wav", 8000, 800);
  int err = 1;
  wav w("datei=beside.wav speaker=3 volume=50 nummer=4", err);
  ASSERT_EQ(err, 0);
  EXPECT_EQ(w.speaker + w.volume + static_cast<int>(w.nummer), 57);
  EXPECT_EQ(w.pstime(), 200);
  ASSERT_EQ(w.prepare(), 0);
  EXPECT_EQ(wav_length_ms(w.sample), 100);
  EXPECT_EQ(w.prepare(), 0);  // again: the first sample is freed
  w.info();
  EXPECT_TRUE(log.has("speaker = 3") && log.has("volume  = 50"));

  std::unique_ptr<stim> missing(_wav("datei=nirgends.wav"));
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->pstime(), 0);
  EXPECT_EQ(missing->prepare(), -1);
  EXPECT_TRUE(log.has("nirgends.wav"));
}

TEST_F(Sound, SpeakerSelection) {
  const struct { const char* text; int port; } names[] = {
      {"lpt2", 2}, {"NONE", 0}, {"LPT3 lpt1", 1}, {"lpt1 none", 0}, {"com1", -1}, {"", -1}};
  for (const auto& n : names) EXPECT_EQ(wav_port_of(n.text), n.port) << n.text;

  int err = 0;
  wav w("speaker=3", err);
  EXPECT_EQ(w.preshow(), -1);
  EXPECT_TRUE(log.has("speaker_select: wav_none"));

  ASSERT_EQ(wav_init(wav_lpt1), 0);
  EXPECT_EQ(w.preshow(), 0);
  EXPECT_EQ(w.cleanup(), 0);  // speaker 0 leaves the lines as they are
  w.speaker = 9;
  EXPECT_EQ(w.preshow(), -1);
  EXPECT_EQ(calls, (std::vector<std::string>{"lpt_init 0", "lpt 0 4"}));

  EXPECT_EQ(wav_init(static_cast<wav_port_>(4)), -1);
  EXPECT_EQ(w.preshow(), -1);
  EXPECT_TRUE(log.has("wav/wavport") && log.has("wav_port"));
  Args lpt2({"-speaker-selection=lpt2"});
  EXPECT_EQ(wav_init(), 0);
  EXPECT_EQ(calls.back(), "lpt_init 1");
  Args bad({"-speaker-selection=com1"});
  EXPECT_EQ(wav_init(), -1);
}

TEST_F(Sound, VolumeTable) {
  dir.write("prog.vol", "2\r\n100\r\n200\r\n");
  ASSERT_EQ(volume_init(), 0);
  EXPECT_EQ(volume_default(0) + volume_default(1) + volume_default(2), 555);
  int err = 1;
  EXPECT_EQ(swav("index=1", err).volume, 200);
  EXPECT_EQ(swav("index=1 volume=50", err).volume, 50);
  EXPECT_EQ(err, 0);
  EXPECT_EQ(swav("index=1000", err).volume, -1);
  EXPECT_EQ(err, -1);
  EXPECT_EQ(_swav("index=-1"), nullptr);
  EXPECT_TRUE(log.has("Volume-Default: Illegal index"));

  for (const char* bad : {"1000", "", "-2", "x"}) {
    dir.write("prog.vol", bad);
    EXPECT_EQ(volume_init(), -1) << bad;
  }
  EXPECT_TRUE(log.has("Volume-Init: Illegal number of volume entries."));
  std::remove(dir.path("prog.vol").c_str());
  EXPECT_EQ(volume_init(), 0);
  EXPECT_EQ(volume_default(0), 255);
}

TEST_F(Sound, ListFiles) {
  std::string text = "3\r\na.wav\r\nb.wav\r\n";
  FILE* f = fmemopen(text.data(), text.size(), "r");
  int n = 0;
  char** names = nullptr;
  ASSERT_EQ(swav_read_list(f, n, names), 0);
  fclose(f);
  ASSERT_EQ(n, 3);
  EXPECT_EQ(std::string(names[0]) + names[1] + names[2], "a.wavb.wavb.wav");
  for (int i = 0; i < n; ++i) free(names[i]);
  free(names);
  for (std::string bad : {"", "x", "5000 a"}) {
    f = fmemopen(bad.data(), bad.size() + 1, "r");
    EXPECT_EQ(swav_read_list(f, n, names), -1) << bad;
    fclose(f);
  }

  const std::string a = wav_file(dir, "a.wav", 8000, 80), b = wav_file(dir, "b.wav", 8000, 160);
  dir.write("prog.snd", "2 " + a + "\n" + b + "\n");
  Args args({dir.path("prog"), "-vol=" + dir.path("prog.vol")});
  EXPECT_EQ(swav_init(), 0);
  EXPECT_EQ(swav_count(), 2);
  EXPECT_TRUE(log.has("not found in ressource"));
  dir.write("prog.snd", "2 " + a + " " + dir.path("c.wav"));
  EXPECT_EQ(swav_init(), 1);
  EXPECT_TRUE(log.has(dir.path("c.wav")));
  Args none({dir.path("prog"), "-snd=" + dir.path("none.snd")});
  EXPECT_EQ(swav_init(), -1);
  EXPECT_TRUE(log.has("for static sounds"));
}

TEST_F(Sound, PreloadedSoundOnAReservedVoice) {
  ASSERT_EQ(table({wav_file(dir, "t.wav", 44100, 44100)}), 0);
  int err = 0;
  swav s("index=0 volume=-1", err);
  EXPECT_EQ(s.pstime() + s.showtime(), 19);
  ASSERT_EQ(s.prepare(), 0);
  EXPECT_EQ(s.t1, 1010);
  EXPECT_EQ(s.preshow(), 0);
  EXPECT_EQ(s.show(), 0);
  position = 100;
  EXPECT_TRUE(s.playing());
  EXPECT_EQ(s.hide(), 0);
  EXPECT_FALSE(s.playing());
  EXPECT_EQ(s.preshow(), -1);
  EXPECT_TRUE(log.has("no voice available"));
  EXPECT_EQ(s.cleanup(), 0);  // the table keeps its sample
  EXPECT_EQ(calls, (std::vector<std::string>{"allocate 44100", "volume 7 255", "start 7", "stop 7", "deallocate 7",
                                             "allocate 44100"}));
  EXPECT_EQ(wav_playing_until(), 0);

  free_voices = 1;
  swav forever("index=0 t1=-1 volume=9", err);
  ASSERT_EQ(forever.prepare(), 0);
  EXPECT_EQ(forever.t1, 0);
  EXPECT_EQ(forever.preshow(), 0);
  EXPECT_EQ(forever.cleanup(), 0);
  EXPECT_EQ(calls.back(), "release 7");

  swav beyond("index=5", err);
  EXPECT_EQ(err, 0);
  EXPECT_EQ(beyond.prepare(), -1);
  EXPECT_TRUE(log.has("swav_get: invalid index (5)"));
}

TEST_F(Sound, ResourcesComeFromTheDatafile) {
  if (std::system("command -v dat >/dev/null") != 0) GTEST_SKIP() << "no dat tool";
  wav_file(dir, "hoch.wav", 8000, 400);
  wav_file(dir, "stille.wav", 8000, 80);
  dir.write("prog.snd", "2\r\nhoch.wav\r\nstille.wav\r\n");
  const std::string dat = dir.path("res.dat");
  const std::string cmd = "cd " + dir.dir + " && dat -a -k res.dat hoch.wav stille.wav >/dev/null && " +
                          "dat -a -k -t IMGF res.dat prog.snd >/dev/null && rm hoch.wav stille.wav prog.snd";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  datafile_init();
  datafile_resource(dat.c_str());
  Args args({dir.path("prog"), "-vol=" + dir.path("prog.vol")});
  EXPECT_EQ(swav_init(), 0);
  datafile_resource(nullptr);
  EXPECT_EQ(swav_count(), 2);
  EXPECT_FALSE(log.has("not found in ressource"));
  EXPECT_EQ(wav_length_ms(swav_get(0)), 50);
  EXPECT_EQ(calls, (std::vector<std::string>{"allocate 80", "start 7"}));  // the silence plays on
}

}  // namespace
