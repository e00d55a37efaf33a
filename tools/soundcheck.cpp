// Where the program's tones landed in a recording of its sound output,
// against when they were scheduled. Usage:
//   ixmod_soundcheck RECORDING TIMING.tsv RATE CHANNELS [LABEL]
// RECORDING is raw signed 16-bit little-endian interleaved audio taken from
// a device paced in real time; TIMING.tsv the program's timing trace
// (option -timing); LABEL begins the rows (default "sound"). The show
// action of every sound (voice_us set: the moment the program computed for
// its first sample to leave the device) is a scheduled tone. Its due time is
// carried from the test clock to CLOCK_MONOTONIC, which paces the output,
// through a straight line fitted per block to the pairs (actual_us,
// system_us) of the trace, so that the test clock's calibration error does
// not show as onset drift; likewise a straight line through the onset
// errors takes out the output device's own rate, the recording's clock. A
// tone that starts while another sounds is found
// where their sum rises. Tones of different pitch reach the detector's
// threshold at different points of their rise: the common offset is taken
// per pitch. Prints rows of the benchmark table.
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

// Fits y = a + b·x by least squares, subtracts it from y and returns b.
double remove_line(const std::vector<double>& x, std::vector<double>& y) {
  const double n = static_cast<double>(y.size());
  if (y.size() < 2) return 0;
  double sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (size_t i = 0; i < y.size(); ++i) {
    sx += x[i];
    sy += y[i];
    sxx += x[i] * x[i];
    sxy += x[i] * y[i];
  }
  const double den = n * sxx - sx * sx;
  const double b = den > 0 ? (n * sxy - sx * sy) / den : 0, a = (sy - b * sx) / n;
  for (size_t i = 0; i < y.size(); ++i) y[i] -= a + b * x[i];
  return b;
}

// The same with one slope for all and an intercept of each group (the tones
// of one pitch): y -= a[group] + b·x; returns b.
double remove_lines(const std::vector<double>& x, const std::vector<int>& group, std::vector<double>& y) {
  std::map<int, double> n, sx, sy;
  for (size_t i = 0; i < y.size(); ++i) {
    n[group[i]] += 1;
    sx[group[i]] += x[i];
    sy[group[i]] += y[i];
  }
  double sxx = 0, sxy = 0;
  for (size_t i = 0; i < y.size(); ++i) {
    const double dx = x[i] - sx[group[i]] / n[group[i]];
    sxx += dx * dx;
    sxy += dx * (y[i] - sy[group[i]] / n[group[i]]);
  }
  const double b = sxx > 0 ? sxy / sxx : 0;
  for (size_t i = 0; i < y.size(); ++i) y[i] -= (sy[group[i]] - b * sx[group[i]]) / n[group[i]] + b * x[i];
  return b;
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
    fprintf(stderr, "usage: %s RECORDING TIMING.tsv RATE CHANNELS [LABEL]\n", argv[0]);
    return 2;
  }
  const std::string label = argc > 5 ? argv[5] : "sound";
  auto name = [&](const char* what) { return (label + " " + what); };
  onset_params p;
  p.steps = true;
  p.rate = atoi(argv[3]);
  p.channels = atoi(argv[4]);
  if (p.rate <= 0 || p.channels <= 0) {
    fprintf(stderr, "soundcheck: bad rate or channel count\n");
    return 2;
  }

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
  min_gap = std::max(min_gap, 0.002 * p.rate);
  const double tolerance = std::min(min_gap / 3, 0.1 * p.rate);
  onset_pairing pairing = pair_onsets(scheduled, found, tolerance);
  // The recording runs at the device's rate, which may be some hundred ppm
  // off: over a minute more than the tolerance. The pairs found near the
  // anchor give the rate, and the tones are paired again on that scale.
  for (int pass = 0; pass < 3; ++pass) {
    std::vector<double> x, y;
    for (size_t i = 0; i < scheduled.size(); ++i)
      if (pairing.found_for[i] >= 0) {
        x.push_back(scheduled[i]);
        y.push_back(found[static_cast<size_t>(pairing.found_for[i])] - scheduled[i]);
      }
    const double rate = 1 + remove_line(x, y);
    std::vector<double> scaled;
    for (double t : scheduled) scaled.push_back(t * rate);
    pairing = pair_onsets(scaled, found, tolerance);
  }

  // The pitch of a found tone (Hz, to 50 Hz): zero crossings of its first
  // 10 ms on the first channel.
  auto pitch = [&](size_t start) {
    const size_t n = std::min<size_t>(static_cast<size_t>(p.rate / 100), frames - std::min(frames, start + 1));
    int crossings = 0;
    for (size_t i = start + 1; i <= start + n; ++i)
      crossings += (audio[(i - 1) * p.channels] < 0) != (audio[i * p.channels] < 0);
    return n ? 50 * std::lround(crossings / 2.0 * p.rate / n / 50) : 0L;
  };
  // Onset minus schedule and onset minus the onset the program recorded,
  // each with the common offset of its pitch removed.
  std::map<long, std::vector<size_t>> by_pitch;
  std::vector<double> err_frames, err_us, after_voice;
  for (size_t i = 0; i < scheduled.size(); ++i) {
    const long j = pairing.found_for[i];
    if (j < 0) continue;
    by_pitch[pitch(tones[static_cast<size_t>(j)].start)].push_back(i);
  }
  std::string offsets;
  std::vector<double> at;        // the scheduled position of each pair, in frames
  std::vector<bool> on_time;     // whether the program started it on its frame
  std::vector<int> group;        // its pitch
  const double usual_offset = bench_stats_of(voice_late).median;
  for (auto& [hz, members] : by_pitch) {
    std::vector<double> e, v;
    for (size_t i : members) {
      const double f = found[static_cast<size_t>(pairing.found_for[i])];
      e.push_back(f - scheduled[i]);
      v.push_back(f * us_per_frame - (voice_mono[i] - due_mono.front()));
      at.push_back(scheduled[i]);
      on_time.push_back(voice_late[i] < usual_offset + 1000);
    }
    char text[80];
    snprintf(text, sizeof text, "%s%ld Hz: %zu tones", offsets.empty() ? "" : ", ", hz, members.size());
    offsets += text;
    for (double x : minus_median(e)) err_frames.push_back(x);
    for (double x : minus_median(v)) after_voice.push_back(x);
    group.insert(group.end(), members.size(), static_cast<int>(hz));
  }
  // The recording runs on the output device's clock, whose rate differs
  // from CLOCK_MONOTONIC's by its crystal's error: a straight line through
  // the errors takes that out (and its slope is reported).
  const double device_ppm = 1e6 * remove_lines(at, group, err_frames);
  remove_lines(at, group, after_voice);
  // IXMOD_SOUNDCHECK_LIST=1 lists every scheduled tone on standard error.
  if (getenv("IXMOD_SOUNDCHECK_LIST"))
    for (size_t i = 0; i < scheduled.size(); ++i) {
      const long j = pairing.found_for[i];
      fprintf(stderr, "tone %zu: scheduled %.0f, found %s%.0f, onset recorded - due %.0f us\n", i + 1,
              scheduled[i] + pairing.offset, j < 0 ? "none " : "", j < 0 ? 0.0 : found[static_cast<size_t>(j)],
              voice_late[i]);
    }
  for (double e : err_frames) err_us.push_back(e * us_per_frame);
  // The sounds the program started on their frames (a late start is in its
  // log): what the stream and its clock do when the program keeps time.
  std::vector<double> x_on, err_on;
  for (size_t k = 0; k < err_us.size(); ++k)
    if (on_time[k]) {
      x_on.push_back(at[k]);
      err_on.push_back(err_us[k]);
    }
  remove_line(x_on, err_on);

  const bench_stats es = bench_stats_of(err_us);
  const bool complete = !scheduled.empty() && pairing.missing == 0 && pairing.extra == 0;
  double worst = 0;
  for (double e : err_us) worst = std::max(worst, std::abs(e));
  bench_row(name("onset - schedule (samples, offset removed)"), bench_stats_of(err_frames));
  bench_row(name("onset - schedule (offset removed)"), es, "sd <= 200, |max| <= 1000",
            bench_met(complete && es.sd <= 200 && worst <= 1000));
  double worst_on = 0;
  for (double e : err_on) worst_on = std::max(worst_on, std::abs(e));
  const bench_stats eo = bench_stats_of(err_on);
  bench_row("  " + name("onset - schedule, started on time"), eo, "sd <= 200, |max| <= 1000",
            bench_met(!err_on.empty() && eo.sd <= 200 && worst_on <= 1000));
  bench_row("  " + name("onset - onset recorded (offset removed)"), bench_stats_of(after_voice));
  bench_row("  " + name("offset: onset recorded - due"), bench_stats_of(voice_late));

  char text[200];
  snprintf(text, sizeof text, "%zu found of %zu scheduled: %zu missing, %zu extra", found.size() - pairing.extra,
           scheduled.size(), pairing.missing, pairing.extra);
  bench_value(name("tones found"), text, "none missing, none extra", bench_met(complete));
  bench_value("  " + name("pitches"), offsets.empty() ? "none" : offsets);
  snprintf(text, sizeof text, "%+.0f ppm (frames of the recording per scheduled frame, fitted)", device_ppm);
  bench_value("  " + name("device clock"), text);
  double ppm = 0;
  if (!fits.empty()) ppm = (fits.begin()->second.b - 1) * 1e6;
  snprintf(text, sizeof text, "%+.0f ppm (CLOCK_MONOTONIC per test clock, fitted)", ppm);
  bench_value("  test clock rate", text);
  snprintf(text, sizeof text, "silence %d, tone %d, threshold %d (of 32767); %.1f s recorded", levels.silence,
           levels.tone, levels.threshold, static_cast<double>(frames) / p.rate);
  bench_value("  " + name("recording levels"), text);
  return 0;
}
