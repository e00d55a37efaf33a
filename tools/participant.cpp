// A scripted participant for demonstrations without a person: it reads the
// stimulus file to learn each trial's correct key, watches the centre of the
// screen for the arrow, and answers through XTEST after 300-550 ms, right
// most of the time, with some omissions, wrong keys and false alarms. Pages
// that wait for a key are turned with the space bar.
//
//   participant STIMFILE [SEED]     (on the display named by DISPLAY)
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

// Type words of the program's own stimulus types; any other first word is
// a visual trial.
const std::set<std::string> kTypes = {"bmp",  "emf",  "sbmp",  "vbmp", "semf", "word", "image", "wav",
                                      "swav", "sound", "back", "instr", "info", "null", "pause", "fli",
                                      "sfli", "stift", "led",  "film", "reak", "shape", "clock", "cbmp",
                                      "cwav", "cled", "cstift", "wheel", "prep"};

std::vector<int> trial_keys(const char* path) {
  std::vector<int> keys;
  FILE* f = fopen(path, "r");
  if (!f) return keys;
  char line[1000];
  while (fgets(line, sizeof line, f)) {
    char word[100];
    if (strlen(line) < 6 || sscanf(line, "%99s", word) != 1 || kTypes.count(word)) continue;
    const char* k = strstr(line, "kritisch=");
    keys.push_back(k ? atoi(k + 9) : -1);
  }
  fclose(f);
  return keys;
}

long long now_ms() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void press(Display* d, const char* key) {
  const KeyCode code = XKeysymToKeycode(d, XStringToKeysym(key));
  XTestFakeKeyEvent(d, code, True, CurrentTime);
  XFlush(d);
  usleep(60000);
  XTestFakeKeyEvent(d, code, False, CurrentTime);
  XFlush(d);
}

// The arrow's shaft covers the screen's centre column in both directions.
bool arrow_shown(Display* d) {
  const int w = DisplayWidth(d, DefaultScreen(d)), h = DisplayHeight(d, DefaultScreen(d));
  XImage* img = XGetImage(d, DefaultRootWindow(d), w / 2 - 8, h / 2 - 4, 17, 17, AllPlanes, ZPixmap);
  if (!img) return false;
  int lit = 0;
  for (int y = 0; y < 17; y += 4)
    for (int x = 0; x < 17; x += 4) lit += XGetPixel(img, x, y) != 0;
  XDestroyImage(img);
  return lit == 25;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fprintf(stderr, "usage: %s STIMFILE [SEED]\n", argv[0]);
    return 2;
  }
  const std::vector<int> keys = trial_keys(argv[1]);
  std::mt19937 rng(argc > 2 ? static_cast<unsigned>(atoi(argv[2])) : 1u);
  std::uniform_real_distribution<double> chance(0, 1);
  std::uniform_int_distribution<int> delay(300, 550);
  Display* d = nullptr;
  for (int i = 0; i < 100 && !(d = XOpenDisplay(nullptr)); ++i) usleep(100000);
  if (!d) return 1;

  size_t trial = 0;
  int correct = 0, wrong = 0, omitted = 0, false_alarms = 0, withheld = 0;
  bool on = false;
  long long last_arrow = now_ms(), last_space = now_ms();
  while (trial < keys.size()) {
    const bool shown = arrow_shown(d);
    if (shown && !on) {
      const int k = keys[trial++];
      last_arrow = now_ms();
      const double c = chance(rng);
      std::string answer;
      if (k > 0) {
        if (c < 0.85) {
          answer = std::to_string(k);
          ++correct;
        } else if (c < 0.92) {
          answer = std::to_string(k % 8 + 1);  // the neighbouring key
          ++wrong;
        } else {
          ++omitted;
        }
      } else if (k == 0) {
        if (c < 0.12) {
          answer = "1";
          ++false_alarms;
        } else {
          ++withheld;
        }
      }
      int wait_ms = 0;
      if (!answer.empty()) {
        wait_ms = delay(rng);
        std::this_thread::sleep_for(std::chrono::milliseconds(wait_ms));
        press(d, answer.c_str());
      }
      if (getenv("PARTICIPANT_TRACE"))
        fprintf(stderr, "participant: %lld arrow %zu (key %d): %s after %d ms\n", last_arrow, trial, k,
                answer.empty() ? "-" : answer.c_str(), wait_ms);
    }
    on = shown;
    // No arrow for a while: a page may be waiting for a key.
    if (now_ms() - last_arrow > 3500 && now_ms() - last_space > 2500) {
      press(d, "space");
      last_space = now_ms();
    }
    usleep(2000);
  }
  // The last pages.
  for (int i = 0; i < 6; ++i) {
    sleep(2);
    press(d, "space");
  }
  printf("participant: %zu trials: %d answered correctly, %d wrong key, %d omitted, %d false alarms, %d withheld\n",
         keys.size(), correct, wrong, omitted, false_alarms, withheld);
  XCloseDisplay(d);
  return 0;
}
