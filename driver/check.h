// The machine check (-check): starts display and sound as a session would,
// runs no test, and prints a table of what the machine offers and whether
// each is fit for the test; with -s=FILE it also builds every block of the
// stimulus file and lists the lines that fail. Exit status 0 when fit, 1
// when something would make timings or equipment fail.
#pragma once
#include <string>
#include <vector>

// yes: fit; warn: works, timings less exact than they could be; no: the
// test's timings or equipment would fail; info: for the record.
enum class fitness { yes, warn, no, info };

struct check_row {
  std::string item, found;
  fitness fit;
};

// The rows as an aligned table, one line each, fitness last.
std::string check_table(const std::vector<check_row>& rows);
// 1 when any row is unfit, else 0.
int check_status(const std::vector<check_row>& rows);

// The port a configuration text names, as the outputs read it: 'L' and
// 1..3 for a parallel port (of "lpt1".."lpt3" the last found wins), 'C' and
// the number for a serial "COMn"; kind 0 for none.
struct port_ref {
  char kind;
  int number;
};
port_ref check_port_ref(const char* text);

// Fitness of the priority class reached (256, 128, 32, 64).
fitness check_priority_fit(unsigned cls);
// Fitness of a retrace source ("present", "drm", "simulated", ...).
fitness check_retrace_fit(const char* source);

// A stimulus-file line that cannot be built: where it is and what the
// program said about it.
struct line_fault {
  int line;
  std::string message;
};
// One block as built: its lines, the trials (distinct trial numbers of the
// stimuli that take a reaction), those stimuli, and the scheduled span.
struct block_summary {
  int lines = 0, trials = 0, evaluated = 0;
  long duration_ms = 0;
  bool built = false;
};
std::string check_block_line(int block, const block_summary& b);

int check_main(int argc, char** argv);
