// Where the program's tones landed in a recording of its sound output,
// against when they were scheduled. Usage:
//   ixmod_soundcheck RECORDING TIMING.tsv RATE CHANNELS [FRAGINFO]
// RECORDING is raw signed 16-bit little-endian interleaved audio taken from
// a device paced in real time; TIMING.tsv the program's timing trace
// (option -timing); FRAGINFO the mixing fragments in force, "FRAMESxCOUNT".
// The show action of every sound (voice_us set) is a scheduled tone. Its
// due time is carried from the test clock to CLOCK_MONOTONIC, which paces
// the output, through a straight line fitted per block to the pairs
// (actual_us, system_us) of the trace, so that the test clock's calibration
// error does not show as onset drift. Prints rows of the benchmark table.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tools/bench_table.h"
#include "tools/onsets.h"

namespace {

struct trace_row {
  int block = 0;
  std::string action;
  double due = 0, actual = 0, system = 0, voice = 0;
};

bool read_trace(const char* name, std::vector<trace_row>& rows) {
  std::ifstream in(name);
  if (!in) return false;
  std::string line;
  std::getline(in, line);  // header
  while (std::getline(in, line)) {
    std::istringstream s(line);
    trace_row r;
    std::string trial, type, late, done, retrace;
    if (s >> r.block >> trial >> type >> r.action >> r.due >> r.actual >> late >> done >> retrace >> r.system >> r.voice)
      rows.push_back(r);
  }
  return true;
}

// system ≈ a + b * test clock, per block.
struct line_fit {
  double a = 0, b = 1;
  double at(double x) const { return a + b * x; }
};

line_fit fit(const std::vector<trace_row>& rows, int block) {
  double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (const trace_row& r : rows) {
    if (r.block != block) continue;
    const double x = r.actual, y = r.system - r.actual;  // fit the difference: small numbers
    n += 1;
    sx += x;
    sy += y;
    sxx += x * x;
    sxy += x * y;
  }
  line_fit f;
  if (n == 0) return f;
  const double den = n * sxx - sx * sx;
  const double slope = n > 1 && den > 0 ? (n * sxy - sx * sy) / den : 0;
  f.b = 1 + slope;
  f.a = (sy - slope * sx) / n;
  return f;
}

std::vector<double> minus_median(std::vector<double> v) {
  if (v.empty()) return v;
  const double m = bench_stats_of(v).median;
  for (double& x : v) x -= m;
  return v;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    fprintf(stderr, "usage: %s RECORDING TIMING.tsv RATE CHANNELS [FRAGINFO]\n", argv[0]);
    return 2;
  }
  onset_params p;
  p.rate = atoi(argv[3]);
  p.channels = atoi(argv[4]);
  if (p.rate <= 0 || p.channels <= 0) {
    fprintf(stderr, "soundcheck: bad rate or channel count\n");
    return 2;
  }
  int frag = 0, frags = 0;
  if (argc > 5) sscanf(argv[5], "%dx%d", &frag, &frags);

  std::vector<int16_t> audio;
  if (FILE* f = fopen(argv[1], "rb")) {
    int16_t buf[8192];
    size_t got;
    while ((got = fread(buf, sizeof(int16_t), 8192, f)) > 0) audio.insert(audio.end(), buf, buf + got);
    fclose(f);
  } else {
    fprintf(stderr, "soundcheck: cannot read %s\n", argv[1]);
    return 2;
  }
  std::vector<trace_row> rows;
  if (!read_trace(argv[2], rows)) {
    fprintf(stderr, "soundcheck: cannot read %s\n", argv[2]);
    return 2;
  }

  const size_t frames = audio.size() / static_cast<size_t>(p.channels);
  onset_levels levels;
  const std::vector<onset> tones = find_onsets(audio.data(), frames, p, &levels);

  // The scheduled tones on CLOCK_MONOTONIC, in frames from the first.
  std::map<int, line_fit> fits;
  std::vector<double> due_mono, voice_mono, voice_late;
  for (const trace_row& r : rows) {
    if (r.action != "show" || r.voice == 0) continue;
    if (!fits.count(r.block)) fits[r.block] = fit(rows, r.block);
    due_mono.push_back(fits[r.block].at(r.due));
    voice_mono.push_back(fits[r.block].at(r.voice));
    voice_late.push_back(r.voice - r.due);
  }
  const double us_per_frame = 1e6 / p.rate;
  std::vector<double> scheduled, found;
  for (double t : due_mono) scheduled.push_back((t - due_mono.front()) / us_per_frame);
  for (const onset& o : tones) found.push_back(static_cast<double>(o.start));
  double min_gap = 1e300;
  for (size_t i = 1; i < scheduled.size(); ++i) min_gap = std::min(min_gap, std::abs(scheduled[i] - scheduled[i - 1]));
  const double tolerance = std::min(min_gap / 3, 0.1 * p.rate);
  const onset_pairing pairing = pair_onsets(scheduled, found, tolerance);

  std::vector<double> err_frames, err_us, after_voice;
  for (size_t i = 0; i < scheduled.size(); ++i) {
    const long j = pairing.found_for[i];
    if (j < 0) continue;
    err_frames.push_back(found[static_cast<size_t>(j)] - scheduled[i]);
    after_voice.push_back(found[static_cast<size_t>(j)] * us_per_frame - (voice_mono[i] - due_mono.front()));
  }
  // IXMOD_SOUNDCHECK_LIST=1 lists every scheduled tone on standard error.
  if (getenv("IXMOD_SOUNDCHECK_LIST"))
    for (size_t i = 0; i < scheduled.size(); ++i) {
      const long j = pairing.found_for[i];
      fprintf(stderr, "tone %zu: scheduled %.0f, found %s%.0f, voice - due %.0f us\n", i + 1,
              scheduled[i] + pairing.offset, j < 0 ? "none " : "", j < 0 ? 0.0 : found[static_cast<size_t>(j)],
              voice_late[i]);
    }
  err_frames = minus_median(err_frames);
  for (double e : err_frames) err_us.push_back(e * us_per_frame);
  after_voice = minus_median(after_voice);

  const bench_stats es = bench_stats_of(err_us);
  const bool complete = !scheduled.empty() && pairing.missing == 0 && pairing.extra == 0;
  bench_row("sound onset - schedule (samples, offset removed)", bench_stats_of(err_frames));
  bench_row("sound onset - schedule (offset removed)", es, "sd <= 1000",
            bench_met(complete && es.sd <= 1000));
  bench_row("  sound onset - voice start (offset removed)", bench_stats_of(after_voice));
  bench_row("  sound voice start - due", bench_stats_of(voice_late));

  char text[160];
  snprintf(text, sizeof text, "%zu found of %zu scheduled: %zu missing, %zu extra", found.size() - pairing.extra,
           scheduled.size(), pairing.missing, pairing.extra);
  bench_value("sound tones found", text, "none missing, none extra", bench_met(complete));
  if (frag > 0 && frags > 0)
    snprintf(text, sizeof text, "%d frames x %d (%.1f ms each, %.1f ms buffered)", frag, frags, frag * 1000.0 / p.rate,
             frag * frags * 1000.0 / p.rate);
  else
    snprintf(text, sizeof text, "unknown");
  bench_value("sound mixing fragment", text);
  double ppm = 0;
  if (!fits.empty()) ppm = (fits.begin()->second.b - 1) * 1e6;
  snprintf(text, sizeof text, "%+.0f ppm (CLOCK_MONOTONIC per test clock, fitted)", ppm);
  bench_value("  test clock rate", text);
  snprintf(text, sizeof text, "silence %d, tone %d, threshold %d (of 32767); %.1f s recorded", levels.silence,
           levels.tone, levels.threshold, static_cast<double>(frames) / p.rate);
  bench_value("  sound recording levels", text);
  return 0;
}
